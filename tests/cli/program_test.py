"""Runs the program as a user would: expected output, error output and exit code.

usage: program_test.py TARN
"""

import collections
import fcntl
import json
import os
import pty
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import time
import unittest

TARN = None


def run(*arguments, **options):
    return subprocess.run([TARN, *map(str, arguments)], capture_output=True, text=True,
                          timeout=300, **options)


def las_parts(path):
    """Leading bytes, point records as a multiset, trailing bytes."""
    with open(path, "rb") as file:
        data = file.read()
    offset, = struct.unpack_from("<I", data, 96)
    size, = struct.unpack_from("<H", data, 105)
    count, = struct.unpack_from("<I", data, 107)
    if data[25] >= 4:
        count = struct.unpack_from("<Q", data, 247)[0] or count
    records = collections.Counter(
        data[offset + i * size:offset + (i + 1) * size] for i in range(count))
    return data[:offset], records, data[offset + count * size:]


class ProgramTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="tarn-cli-")
        cls.scan = os.path.join(cls.folder, "street.las")
        cls.cloud = os.path.join(cls.folder, "street.tarn")
        made = run("synthesize", "-o", cls.scan, "--points", 60000, "-q")
        assert made.returncode == 0, made.stderr
        made = run("import", cls.scan, "-o", cls.cloud, "-q")
        assert made.returncode == 0, made.stderr

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.folder)

    def path(self, *names):
        return os.path.join(self.folder, *names)

    def assert_fails(self, done, *parts, code=1):
        self.assertEqual(done.returncode, code, (done.stdout, done.stderr))
        for part in parts:
            self.assertIn(part, done.stderr)

    def assert_fails_clearly(self, done, part):
        """One message, which begins with the program's name and says `part`."""
        self.assert_fails(done, part)
        self.assertEqual(done.stdout, "")
        self.assertEqual(done.stderr.count("tarn: "), 1, done.stderr)
        self.assertTrue(done.stderr.startswith("tarn: "), done.stderr)

    def leftovers(self):
        return [name for name in os.listdir(self.folder) if name.startswith(".")]

    # -- usage

    def test_help_of_every_command_has_an_example(self):
        for command in ("import", "info", "query", "export", "thin", "render", "iterations", "verify",
                        "synthesize"):
            done = run(command, "--help")
            self.assertEqual(done.returncode, 0)
            self.assertIn("tarn " + command, done.stdout)
            self.assertIn("Example", done.stdout)

    def test_version_is_one_line(self):
        done = run("--version")
        self.assertEqual(done.returncode, 0)
        self.assertRegex(done.stdout, r"^tarn \d+\.\d+\.\d+\n$")

    def test_wrong_usage_exits_with_two(self):
        for arguments in ([], ["nonsense"], ["import"], ["query", self.cloud],
                          ["query", self.cloud, "#true()", "--iteration", "x"]):
            self.assertEqual(run(*arguments).returncode, 2, arguments)

    def test_wrong_usage_is_said_in_the_form_of_every_failure(self):
        self.assert_fails(run("query", self.cloud), "tarn: TEXT is required", "tarn query --help",
                          code=2)

    def test_unknown_command_is_answered_with_the_nearest(self):
        self.assert_fails(run("querry", self.cloud), 'no command "querry"', '"query"', code=2)
        self.assert_fails(run("bogus"), 'no command "bogus"', "tarn --help", code=2)

    def test_wrong_words_are_answered_with_the_words_there_are(self):
        picture = ["render", self.cloud, "-o", self.path("never.png")]
        self.assert_fails(run(*picture, "--color", "red"), '"red" is none of classification',
                          code=2)
        self.assert_fails(run(*picture, "--view", "below"), '"below" is none of front', code=2)
        self.assert_fails(run("thin", self.cloud, "-o", self.path("never.las"), "--spacing", "0"),
                          '"0" is not a number above 0', code=2)

    def test_control_characters_of_a_scan_do_not_reach_the_terminal(self):
        with open(self.scan, "rb") as file:
            scan = bytearray(file.read())
        scan[58:64] = b"a\x1b[2Jb"
        with open(self.path("odd.las"), "wb") as file:
            file.write(scan)
        self.assertEqual(run("import", self.path("odd.las"), "-o", self.path("odd.tarn")).returncode,
                         0)
        told = run("info", self.path("odd.tarn"), "--metadata").stdout
        self.assertIn("a?[2Jb", told)
        self.assertNotIn("\x1b", told)

    def test_more_made_up_points_than_the_disk_holds_are_refused_at_once(self):
        self.assert_fails(run("synthesize", "-o", self.path("n.las"), "--points", 10 ** 15),
                          "kNoSpace", "bytes are free")
        self.assertFalse(os.path.exists(self.path("n.las")))

    def test_numbers_with_a_sign_or_out_of_range_are_wrong_usage(self):
        for number in ("-1", "3x", "99999999999999999999999", ""):
            for arguments in (["query", self.cloud, "#true()", "--iteration=" + number],
                              ["synthesize", "-o", self.path("n.las"), "--points=" + number],
                              ["import", self.scan, "-o", self.path("n.tarn"), "--time=" + number]):
                self.assert_fails(run(*arguments), "tarn: --", code=2)
        self.assertFalse(os.path.exists(self.path("n.las")) or os.path.exists(self.path("n.tarn")))

    def test_output_without_a_name_is_wrong_usage(self):
        self.assert_fails(run("import", self.scan, "-o", ""), "the name is empty", code=2)

    def test_closed_output_is_said_and_fails(self):
        reading, writing = os.pipe()
        os.close(reading)
        done = subprocess.run([TARN, "info", self.cloud, "--json"], stdout=writing,
                              stderr=subprocess.PIPE, text=True, timeout=60)
        os.close(writing)
        self.assert_fails(done, "standard output")

    def test_progress_is_rewritten_on_a_terminal_and_plain_elsewhere(self):
        plain = run("export", self.cloud, "-o", self.path("plain.las"))
        self.assertEqual(plain.stderr, "writing …\n")
        quiet = run("export", self.cloud, "-o", self.path("plain.las"), "-q")
        self.assertEqual((quiet.stdout, quiet.stderr), ("", ""))
        terminal, side = pty.openpty()
        process = subprocess.Popen([TARN, "export", self.cloud, "-o", self.path("plain.las")],
                                   stdout=subprocess.DEVNULL, stderr=side)
        os.close(side)
        shown = b""
        try:
            while part := os.read(terminal, 4096):
                shown += part
        except OSError:  # Linux says so when the last writer closes
            pass
        os.close(terminal)
        self.assertEqual(process.wait(60), 0)
        self.assertIn(b"\r", shown)
        self.assertIn(b"of 60,000", shown)

    # -- import and export

    def test_failed_overwrite_keeps_what_was_there(self):
        kept, cut = self.path("kept.tarn"), self.path("short.las")
        shutil.copytree(self.cloud, kept)
        with open(self.scan, "rb") as source, open(cut, "wb") as file:
            file.write(source.read()[:20000])
        self.assert_fails(run("import", cut, "-o", kept, "--overwrite"), "kScanTruncated")
        self.assertEqual(run("verify", kept).returncode, 0)

    def test_export_refuses_a_name_that_is_no_las_file(self):
        kept = self.path("unharmed.tarn")
        shutil.copytree(self.cloud, kept)
        self.assert_fails(run("export", kept, "-o", os.path.join(kept, "main")),
                          "does not end in .las", code=2)
        self.assertEqual(run("verify", kept).returncode, 0)

    def test_header_that_lies_or_ends_early_is_refused(self):
        with open(self.scan, "rb") as file:
            whole = file.read()
        lies = [whole[:length] for length in (0, 3, 4, 100, 226, 374, 400)]
        for offset, form, value in ((96, "<I", 10), (96, "<I", 0xFFFFFFFF), (105, "<H", 1),
                                    (100, "<I", 0xFFFFFFFF), (104, "<B", 99), (94, "<H", 5),
                                    (247, "<Q", 1 << 63), (131, "<d", 0.0)):
            lie = bytearray(whole)
            struct.pack_into(form, lie, offset, value)
            lies.append(bytes(lie))
        liar, out = self.path("liar.las"), self.path("lied.tarn")
        for number, lie in enumerate(lies):
            with open(liar, "wb") as file:
                file.write(lie)
            done = run("import", liar, "-o", out, "-q")
            self.assertEqual(done.returncode, 1, number)
            self.assertRegex(done.stderr, r"^tarn: .*liar\.las", number)
            self.assertFalse(os.path.exists(out))
        self.assertEqual(self.leftovers(), [])

    def test_full_disk_leaves_nothing_of_an_import(self):
        disk = self.path("disk")
        os.mkdir(disk)
        if subprocess.run(["mount", "-t", "tmpfs", "-o", "size=400k", "tmpfs", disk],
                          capture_output=True).returncode != 0:
            self.skipTest("SKIPPED: no small disk can be mounted here")
        try:
            done = run("import", self.scan, "-o", os.path.join(disk, "x.tarn"))
            self.assert_fails(done, "full", "kNoSpace")
            self.assertEqual(os.listdir(disk), [])
        finally:
            subprocess.run(["umount", disk], check=True)

    def test_export_gives_every_byte_back(self):
        out = self.path("again.las")
        self.assertEqual(run("export", self.cloud, "-o", out).returncode, 0)
        self.assertEqual(las_parts(self.scan), las_parts(out))

    def test_two_scans_make_one_cloud(self):
        both = self.path("both.tarn")
        self.assertEqual(run("import", self.scan, self.scan, "-o", both, "-q").returncode, 0)
        self.assertEqual(run("query", both, "#true()", "--count").stdout, "120000\n")
        self.assertEqual(run("verify", both).returncode, 0)

    def test_folder_stands_for_its_scans_whose_names_queries_know(self):
        tiles = self.path("tiles")
        os.makedirs(tiles)
        for name, seed in (("b.las", 1), ("a.las", 2)):
            made = run("synthesize", "-o", os.path.join(tiles, name), "--points", 1000, "--seed",
                       seed, "-q")
            self.assertEqual(made.returncode, 0, made.stderr)
        cloud = self.path("tiles.tarn")
        done = run("import", tiles, self.scan, "-o", cloud)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn("from 3 scans", done.stdout)
        sources = json.loads(run("info", cloud, "--json").stdout)["sources"]
        self.assertEqual([source["file"] for source in sources], ["a.las", "b.las", "street.las"])
        count = run("query", cloud, '#num{type=string}("source", ==, "b.las")', "--count")
        self.assertEqual(int(count.stdout), sources[1]["points"])

    def test_import_of_a_folder_without_scans_says_so(self):
        empty = self.path("empty")
        os.makedirs(empty)
        self.assert_fails_clearly(run("import", empty, "-o", self.path("none.tarn")),
                                  "the folder holds no scan")
        self.assertFalse(os.path.exists(self.path("none.tarn")))

    def test_kept_order_gives_the_same_file_back(self):
        cloud = self.path("ordered.tarn")
        out = self.path("ordered.las")
        done = run("import", self.scan, "-o", cloud, "--keep-order", "-q")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(run("export", cloud, "-o", out, "-q").returncode, 0)
        with open(self.scan, "rb") as before, open(out, "rb") as after:
            self.assertTrue(before.read() == after.read())

    def test_checksums_of_a_scan_and_of_its_repository_agree(self):
        scan = run("info", "--checksum", self.scan)
        cloud = run("info", "--checksum", self.cloud)
        self.assertEqual(scan.returncode, 0, scan.stderr)
        self.assertEqual(scan.stdout, cloud.stdout)
        self.assertIn("DEF_POSITION", scan.stdout)
        scan = json.loads(run("info", "--checksum", self.scan, "--json").stdout)
        cloud = json.loads(run("info", "--checksum", self.cloud, "--json").stdout)
        self.assertEqual(scan, cloud)
        self.assertEqual(scan["points"], 60000)
        self.assertEqual(len(scan["records"]), 16)

    def test_append_of_the_same_scan_is_warned_of(self):
        cloud = self.path("twice.tarn")
        self.assertEqual(run("import", self.scan, "-o", cloud, "-q").returncode, 0)
        done = run("append", cloud, self.scan, "-q")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn("tarn: warning: ", done.stderr)
        self.assertIn("seems to be in the cloud already", done.stderr)

    def test_overwrite_keeps_a_foreign_file(self):
        cloud = self.path("foreign.tarn")
        self.assertEqual(run("import", self.scan, "-o", cloud, "-q").returncode, 0)
        notes = os.path.join(cloud, "notes.txt")
        with open(notes, "w", encoding="utf-8") as file:
            file.write("mine")
        done = run("import", self.scan, "-o", cloud, "--overwrite", "-q")
        self.assert_fails_clearly(done, "notes.txt")
        self.assertTrue(os.path.exists(notes))

    def test_import_within_stated_memory_and_refusal_of_what_is_no_amount(self):
        done = run("import", self.scan, "-o", self.path("small.tarn"), "--memory", "64M")
        self.assertEqual(done.returncode, 0, done.stderr)
        for amount in ("0", "-5", "12X", "M", "1.5G", "99999999999G", "4GG", ""):
            done = run("import", self.scan, "-o", self.path("x.tarn"), f"--memory={amount}")
            self.assertEqual(done.returncode, 2, amount)
            self.assertIn("--memory", done.stderr)
            self.assertFalse(os.path.exists(self.path("x.tarn")))

    def test_import_of_nothing_names_the_path(self):
        done = run("import", self.path("absent.las"), "-o", self.path("x.tarn"))
        self.assert_fails(done, "no such file", "absent.las")
        self.assertFalse(os.path.exists(self.path("x.tarn")))

    def test_import_of_a_text_file_says_it_is_no_scan(self):
        text = self.path("text.las")
        with open(text, "w") as file:
            file.write("this is no scan\n" * 30)
        self.assert_fails(run("import", text, "-o", self.path("x.tarn")), "not a LAS file",
                          "kScanNotRecognised")

    def test_import_of_a_cut_scan_says_how_many_points_are_missing(self):
        cut = self.path("cut.las")
        with open(self.scan, "rb") as source, open(cut, "wb") as file:
            file.write(source.read()[:-36 * 10])
        self.assert_fails(run("import", cut, "-o", self.path("x.tarn")), "10 are missing",
                          "kScanTruncated")
        self.assertEqual(self.leftovers(), [])

    def test_existing_output_is_kept_unless_overwritten(self):
        self.assert_fails(run("import", self.scan, "-o", self.cloud), "already", "--overwrite")
        copy = self.path("copy.tarn")
        shutil.copytree(self.cloud, copy)
        self.assertEqual(run("import", self.scan, "-o", copy, "--overwrite").returncode, 0)
        other = self.path("folder")
        os.mkdir(other)
        self.assert_fails(run("import", self.scan, "-o", other, "--overwrite"), "no repository")

    def test_place_that_cannot_be_written_to_is_named(self):
        done = run("import", self.scan, "-o", os.path.join(self.scan, "x.tarn"))
        self.assert_fails(done, "street.las")
        done = run("export", self.cloud, "-o", os.path.join(self.folder, "no", "out.las"))
        self.assert_fails(done, "folder")

    @unittest.skipUnless(os.path.exists("/dev/full"), "SKIPPED: there is no /dev/full here")
    def test_full_disk_is_said_and_fails(self):
        self.assert_fails(run("query", self.cloud, "#true()", "-o", self.full(".csv")), "full")
        self.assert_fails(run("export", self.cloud, "-o", self.full(".las")), "full")
        with open("/dev/full", "w") as full:
            done = subprocess.run([TARN, "info", self.cloud], stdout=full, stderr=subprocess.PIPE,
                                  text=True, timeout=60)
        self.assertEqual(done.returncode, 1)
        self.assertIn("standard output", done.stderr)

    def full(self, ending):
        link = self.path("full" + ending)
        if not os.path.lexists(link):
            os.symlink("/dev/full", link)
        return link

    def test_interrupted_import_leaves_nothing(self):
        big = self.path("big.las")
        self.assertEqual(run("synthesize", "-o", big, "--points", 1500000, "-q").returncode, 0)
        stopped = 0
        for delay in (0.02, 0.05, 0.1, 0.2, 0.4):
            out = self.path("interrupted.tarn")
            process = subprocess.Popen([TARN, "import", big, "-o", out, "-q"],
                                       stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
            time.sleep(delay)
            process.send_signal(signal.SIGINT)
            _, errors = process.communicate(timeout=120)
            if process.returncode == 0:
                shutil.rmtree(out)
                continue
            self.assertFalse(os.path.exists(out))
            self.assertEqual(self.leftovers(), [])
            if process.returncode == 1:
                stopped += 1
                self.assertIn("kStopped", errors)
        self.assertGreater(stopped, 0)
        os.remove(big)

    # -- info, iterations, verify

    def test_info_as_json_tells_the_facts(self):
        facts = json.loads(run("info", self.cloud, "--stats", "--json").stdout)
        self.assertEqual(facts["points"], 60000)
        self.assertEqual(facts["scale"], [0.001, 0.001, 0.001])
        by_name = {dimension["name"]: dimension for dimension in facts["dimensions"]}
        self.assertEqual(by_name["classification"]["type"], "uint8_t")
        self.assertIn("mean", by_name["intensity"])
        self.assertEqual(facts["sources"][0]["point_format"], 7)
        levels = facts["levels_of_detail"]
        self.assertGreater(len(levels), 1)
        self.assertEqual([level["level"] for level in levels], list(range(len(levels))))
        self.assertEqual(sum(level["points"] for level in levels), 60000)
        for coarse, fine in zip(levels, levels[1:]):
            self.assertEqual(fine["spacing"], coarse["spacing"] / 2)
        self.assertEqual(levels[0]["nodes"], 1)
        leading, records, _ = las_parts(self.scan)
        least = min(struct.unpack_from("<i", record)[0] for record in records)
        offset, = struct.unpack_from("<d", leading, 155)
        self.assertEqual(facts["bounds"]["min"][0], least * 0.001 + offset)

    def test_info_as_text_lists_what_was_asked_for(self):
        plain = run("info", self.cloud).stdout
        self.assertIn("60,000 points", plain)
        self.assertNotIn("minimum", plain)
        self.assertRegex(plain, r"\n  levels +0 to \d+, spacing [\d.e+-]+ to [\d.e+-]+\n")
        full = run("info", self.cloud, "--schema", "--stats", "--metadata").stdout
        for part in ("uint16_t x 3", "minimum", "LAS 1.4, point format 7", "LASF_Projection 2112"):
            self.assertIn(part, full)

    def test_iterations_lists_the_one_there_is(self):
        self.assertRegex(run("iterations", self.cloud).stdout, r"^0  \d{4}-.* 60,000 points")
        facts = json.loads(run("iterations", self.cloud, "--json").stdout)
        self.assertEqual([entry["points"] for entry in facts], [60000])

    def test_what_is_no_repository_is_refused(self):
        for command in (["info"], ["verify"], ["iterations"], ["query"], ["export"]):
            arguments = command + [self.folder]
            arguments += ["#true()"] if command == ["query"] else []
            arguments += ["-o", self.path("n.las")] if command == ["export"] else []
            self.assert_fails(run(*arguments), "no repository", "kNotARepository")

    def test_every_stream_is_missed_when_deleted_cut_or_altered(self):
        self.assertEqual(run("verify", self.cloud).returncode, 0)
        # A folder without these is whole: the lock is made when needed, the copy at a commit.
        for stream in sorted(set(os.listdir(self.cloud)) - {"main.copy", "writer.lock"}):
            for harm in ("delete", "cut", "alter"):
                copy = self.path("harmed.tarn")
                shutil.copytree(self.cloud, copy)
                self.harm(os.path.join(copy, stream), harm)
                done = run("verify", copy)
                shutil.rmtree(copy)
                if harm != "delete" and os.path.getsize(os.path.join(self.cloud, stream)) == 0:
                    continue
                self.assertEqual(done.returncode, 1, (stream, harm, done.stdout))
                self.assertTrue(done.stderr)

    def test_repair_brings_back_a_cloud_whose_newest_source_is_damaged(self):
        harmed = self.path("sourceless.tarn")
        shutil.copytree(self.cloud, harmed)
        more = self.path("more.las")
        self.assertEqual(run("export", harmed, "-o", more).returncode, 0)
        before = int(run("query", harmed, "#true()", "--count").stdout)
        self.assertEqual(run("append", harmed, more).returncode, 0)
        sources = os.path.join(harmed, "DEF_SOURCES")
        self.alter(sources, os.path.getsize(sources) - 200)
        self.assertEqual(run("info", harmed).returncode, 1)
        done = run("repair", harmed)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn("its points are all there", done.stdout)
        self.assertEqual(run("query", harmed, "#true()", "--count").stdout.strip(), str(2 * before))
        self.assertEqual(run("verify", harmed).returncode, 0)

    def test_repair_renews_a_damaged_copy_of_the_main_stream(self):
        harmed = self.path("copyless.tarn")
        shutil.copytree(self.cloud, harmed)
        copy = os.path.join(harmed, "main.copy")
        self.alter(copy, os.path.getsize(copy) // 2)
        self.assertEqual(run("verify", harmed).returncode, 1)
        self.assertEqual(run("repair", harmed).returncode, 0)
        self.assertEqual(run("verify", harmed).returncode, 0)

    @staticmethod
    def alter(path, place):
        with open(path, "r+b") as file:
            file.seek(place)
            byte = file.read(1)[0]
            file.seek(place)
            file.write(bytes([byte ^ 1]))

    def test_append_makes_an_iteration_that_its_time_finds(self):
        grown = self.path("grown.tarn")
        shutil.copytree(self.cloud, grown)
        before = int(run("query", grown, "#true()", "--count").stdout)
        more = self.path("more.las")
        self.assertEqual(run("export", grown, "-o", more).returncode, 0)
        done = run("append", grown, more)
        self.assertEqual(done.returncode, 0, done.stderr)
        listed = json.loads(run("iterations", grown, "--json").stdout)
        self.assertEqual([it["points"] for it in listed], [before, 2 * before])
        for iteration, points in ((0, before), (1, 2 * before)):
            micros = listed[iteration]["time_point"]
            second = time.strftime("%Y-%m-%dT%H:%M:%S", time.gmtime(micros // 1000000))
            chosen = [("--iteration", str(iteration)), ("--at", str(micros))]
            if listed[0]["time_point"] // 1000000 != listed[1]["time_point"] // 1000000:
                chosen.append(("--at", second))
            for option in chosen:
                counted = run("query", grown, "#true()", "--count", *option)
                self.assertEqual(counted.stdout.strip(), str(points), option)
        early = run("query", grown, "#true()", "--count", "--at", "1999-12-31")
        self.assertEqual(early.returncode, 1)
        wrong = run("query", grown, "#true()", "--count", "--at", "yesterday")
        self.assertEqual(wrong.returncode, 2)
        again = run("append", grown, more, "--time", "1999-12-31")
        self.assertEqual(again.returncode, 1)
        self.assertIn("not later", again.stderr)

    def test_no_command_crashes_on_a_harmed_repository(self):
        harmed, out = self.path("worn.tarn"), self.path("worn.las")
        for stream in ("main", "DEF_OCTREE", "DEF_UPDATE_ITERATIONS", "DEF_SOURCES",
                       "DEF_COLUMN_0", "DEF_COLUMN_0_BLOCKS", "DEF_COLUMN_1"):
            for harm in ("delete", "cut", "alter"):
                shutil.copytree(self.cloud, harmed)
                self.harm(os.path.join(harmed, stream), harm)
                for arguments in (["info", harmed, "--stats"], ["iterations", harmed],
                                  ["query", harmed, "#true()", "--count"],
                                  ["export", harmed, "-o", out]):
                    done = run(*arguments)
                    self.assertIn(done.returncode, (0, 1), (stream, harm, arguments))
                    self.assertEqual(done.returncode == 1, "code 0x" in done.stderr)
                self.assertEqual(done.returncode, 1, (stream, harm))  # export reads everything
                self.assertFalse(os.path.exists(out))
                shutil.rmtree(harmed)

    @staticmethod
    def harm(path, harm):
        size = os.path.getsize(path)
        if harm == "delete":
            os.remove(path)
        elif size > 0:
            with open(path, "r+b") as file:
                if harm == "cut":
                    file.truncate(size - 1)
                else:
                    file.seek(size // 2)
                    byte = file.read(1)[0]
                    file.seek(size // 2)
                    file.write(bytes([byte ^ 0x10]))

    def test_verify_as_json_names_the_fault(self):
        copy = self.path("faulty.tarn")
        shutil.copytree(self.cloud, copy)
        self.harm(os.path.join(copy, "DEF_COLUMN_0"), "alter")
        done = run("verify", copy, "--json")
        shutil.rmtree(copy)
        self.assertEqual(done.returncode, 1)
        report = json.loads(done.stdout)
        self.assertFalse(report["sound"])
        self.assertEqual(report["faults"][0]["code"], "kChecksumMismatch")
        self.assertEqual(report["faults"][0]["stream"], "DEF_COLUMN_0")
        self.assertIn("DEF_POSITION", report["faults"][0]["what"])
        self.assertEqual(report["fault_count"], 1)

    # -- repair

    def test_repair_of_a_sound_repository_does_nothing(self):
        done = run("repair", self.cloud, "--json")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        facts = json.loads(done.stdout)
        self.assertTrue(facts["sound"])
        self.assertFalse(facts["main_replaced"])
        self.assertIn("nothing to repair", run("repair", self.cloud).stdout)

    def test_repair_brings_a_lost_main_stream_back(self):
        copy = self.path("lost.tarn")
        shutil.copytree(self.cloud, copy)
        with open(os.path.join(copy, "main"), "r+b") as file:
            file.truncate(40)
        self.assertEqual(run("info", copy).returncode, 1)
        os.rename(os.path.join(copy, "main"), os.path.join(copy, "away"))
        self.assert_fails(run("info", copy), "main stream of the repository is missing",
                          "tarn repair")
        os.rename(os.path.join(copy, "away"), os.path.join(copy, "main"))
        trial = run("repair", copy, "--dry-run")
        self.assertEqual(trial.returncode, 0)
        self.assertIn("taken from its copy", trial.stdout)
        self.assertEqual(run("info", copy).returncode, 1)
        facts = json.loads(run("repair", copy, "--json").stdout)
        self.assertTrue(facts["main_replaced"] and facts["main_from_copy"])
        self.assertEqual((facts["iterations_before"], facts["iterations_after"]), (1, 1))
        self.assertEqual(os.path.getsize(facts["backup"]), 40)
        self.assertEqual(run("verify", copy).returncode, 0)
        shutil.rmtree(copy)

    def test_repair_says_when_nothing_can_be_brought_back(self):
        copy = self.path("beyond.tarn")
        shutil.copytree(self.cloud, copy)
        self.harm(os.path.join(copy, "DEF_COLUMN_0"), "alter")
        self.assert_fails(run("repair", copy), "no iteration is intact", "kChecksumMismatch")
        shutil.rmtree(copy)
        self.assert_fails(run("repair", copy), "kNotARepository")

    def test_writer_at_work_is_not_disturbed(self):
        copy = self.path("busy.tarn")
        shutil.copytree(self.cloud, copy)
        with open(os.path.join(copy, "writer.lock"), "ab") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            self.assert_fails(run("repair", copy), "kBeingWritten")
            self.assert_fails(run("import", self.scan, "-o", copy, "--overwrite"),
                              "kBeingWritten")
            self.assertEqual(run("verify", copy).returncode, 0)
        self.assertEqual(run("import", self.scan, "-o", copy, "--overwrite").returncode, 0)
        shutil.rmtree(copy)

    # -- query

    def test_count_is_a_bare_number(self):
        done = run("query", self.cloud, "#true()", "--count")
        self.assertEqual((done.stdout, done.stderr, done.returncode), ("60000\n", "", 0))

    def test_query_as_json(self):
        facts = json.loads(run("query", self.cloud, "#false()", "--json").stdout)
        self.assertEqual((facts["selected"], facts["points"]), (0, 60000))

    def test_selection_and_its_complement_are_the_cloud(self):
        ground = '#num{type=uint8_t}("classification", ==, 2)'
        one, other = self.path("ground.las"), self.path("rest.las")
        self.assertEqual(run("query", self.cloud, ground, "-o", one).returncode, 0)
        self.assertEqual(run("query", self.cloud, f"#not({ground})", "-o", other).returncode, 0)
        both = las_parts(one)[1] + las_parts(other)[1]
        self.assertEqual(both, las_parts(self.scan)[1])
        self.assertTrue(all(record[16] == 2 for record in las_parts(one)[1]))

    def test_csv_has_a_header_and_a_line_a_point(self):
        out = self.path("part.csv")
        counted = run("query", self.cloud, '#num{type=int}("return_number", >, 1)', "--count")
        self.assertEqual(
            run("query", self.cloud, '#num{type=int}("return_number", >, 1)', "-o", out).returncode, 0)
        with open(out) as file:
            lines = file.read().splitlines()
        self.assertTrue(lines[0].startswith("x,y,z,intensity,return_number,"))
        self.assertEqual(len(lines) - 1, int(counted.stdout))
        column = lines[0].split(",").index("return_number")
        self.assertTrue(all(int(line.split(",")[column]) > 1 for line in lines[1:]))

    def test_local_constants_are_not_moved(self):
        facts = json.loads(run("info", self.cloud, "--json").stdout)
        least, greatest = facts["bounds"]["min"], facts["bounds"]["max"]
        middle = [(a + b) / 2 for a, b in zip(least, greatest)]
        local = [m - o for m, o in zip(middle, facts["local_frame_offset"])]
        text = "#within{type=sphere}(%.17g, %.17g, %.17g, 20)"
        source = run("query", self.cloud, text % tuple(middle), "--count").stdout
        self.assertGreater(int(source), 0)
        self.assertEqual(run("query", self.cloud, text % tuple(local), "--count", "--local").stdout,
                         source)
        self.assertEqual(run("query", self.cloud, text % tuple(middle), "--count", "--local").stdout,
                         "0\n")

    def test_text_that_does_not_parse_is_shown_with_a_caret(self):
        done = run("query", self.cloud, '#num{type=int}("x" >, 5)')
        self.assert_fails(done, '#num{type=int}("x" >, 5)\n                   ^\n', "after the name",
                          "kQueryRejected")

    def test_bare_inner_call_is_answered_with_the_form_that_works(self):
        done = run("query", self.cloud, "#and(#or(#true(),#false()),#true())")
        self.assert_fails(done, "write #and((#or(#true(),#false())),#true())")
        mended = run("query", self.cloud, "#and((#or(#true(),#false())),#true())", "--count")
        self.assertEqual(mended.stdout, "60000\n")

    def test_unknown_name_is_answered_with_the_nearest(self):
        self.assert_fails(run("query", self.cloud, '#num{type=int}("intensty", >, 5)'),
                          'did you mean "intensity"?')

    def test_wrong_type_is_answered_with_the_right_one(self):
        self.assert_fails(run("query", self.cloud, '#num{type=int}("gps_time", >, 5)'),
                          "type=double")

    def test_two_types_for_one_name_work_but_cannot_be_checked_record_by_record(self):
        text = ('#or(#num{type=int}("classification", ==, 2),'
                '#num{type=uint8_t}("classification", ==, 6))')
        one = text.replace("uint8_t", "int")
        self.assertEqual(run("query", self.cloud, text, "--count").stdout,
                         run("query", self.cloud, one, "--count").stdout)
        self.assert_fails(run("query", self.cloud, text, "--check"),
                          "as uint8_t here and as int before")

    def test_check_says_that_both_ways_agree(self):
        text = '#and(#num{type=double}("z", >, 5), #num{type=int}("intensity", <, 20000))'
        done = run("query", self.cloud, text, "--check")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn("the same record by record", done.stdout)
        facts = json.loads(run("query", self.cloud, text, "--check", "--json").stdout)
        self.assertTrue(facts["sound"])
        self.assertEqual(facts["compared"], facts["points"])
        self.assertEqual(facts["selected"], facts["counted"])

    def test_check_takes_no_output(self):
        done = run("query", self.cloud, "#true()", "--check", "-o", self.path("x.las"))
        self.assertEqual(done.returncode, 2)

    def test_limit_stops_after_so_many_points(self):
        out = self.path("few.csv")
        self.assertEqual(run("query", self.cloud, "#true()", "--limit", 7, "-o", out).returncode, 0)
        with open(out) as file:
            self.assertEqual(len(file.readlines()), 8)
        self.assertEqual(run("query", self.cloud, "#true()", "--limit", 7, "--count").stdout, "7\n")
        self.assertEqual(run("query", self.cloud, "#true()", "--limit", 0, "--count").stdout, "0\n")

    def test_statistics_as_text_and_as_json(self):
        text = '#num{type=int}("classification", ==, 2)'
        done = run("query", self.cloud, text, "--stats")
        self.assertIn("dimension", done.stdout)
        facts = json.loads(run("query", self.cloud, text, "--stats", "--json").stdout)
        self.assertEqual(facts["statistics"]["classification"],
                         {"count": facts["selected"], "nan": 0, "min": 2, "max": 2, "mean": 2.0})
        self.assertLess(facts["statistics"]["x"]["min"], facts["statistics"]["x"]["max"])

    def test_explain_tells_the_plan_and_what_was_read(self):
        text = '#and(#num{type=uint8_t}("classification", ==, 2), #num{type=double}("z", >, 5))'
        done = run("query", self.cloud, text, "--explain")
        for part in ("plan:", "classification = 2", "blocks:", "bytes read"):
            self.assertIn(part, done.stdout)
        plan = json.loads(run("query", self.cloud, text, "--explain", "--json").stdout)["plan"]
        self.assertEqual(len(plan["tests"]), 2)
        self.assertIn("classification", [column["name"] for column in plan["columns"]])

    def test_ply_holds_the_points(self):
        out = self.path("out.ply")
        done = run("query", self.cloud, "#true()", "--limit", 1000, "-o", out)
        self.assertEqual(done.returncode, 0, done.stderr)
        with open(out, "rb") as file:
            data = file.read()
        head, points = data.split(b"end_header\n", 1)
        self.assertIn(b"element vertex 1000\n", head)
        sizes = {b"double": 8, b"float": 4, b"uint": 4, b"int": 4, b"ushort": 2, b"short": 2,
                 b"uchar": 1, b"char": 1}
        stride = sum(sizes[line.split()[1]] for line in head.split(b"\n")
                     if line.startswith(b"property"))
        self.assertEqual(len(points), 1000 * stride)

    def test_text_is_imported_appended_and_written_in_every_format(self):
        text, cloud = self.path("points.txt"), self.path("points.tarn")
        with open(text, "w") as file:
            file.write("made by hand\n")
            for i in range(100):
                file.write(f"{i}.25 word {i % 7}.5 -1.125 {i}\n")
            file.write("nan word 0 0 7\n")
        options = ["--skip", 1, "--columns", "x,-,y,z,intensity"]
        done = run("import", text, "-o", cloud, *options)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn("100 points from 1 scan", done.stdout)
        self.assertIn("note: " + text + ": 1 point has no place", done.stderr)
        self.assertEqual(run("append", cloud, text, "-q", *options).returncode, 0)
        self.assertEqual(run("verify", cloud, "-q").returncode, 0)
        for ending in ("csv", "ply", "pcd"):
            out, again = self.path("points." + ending), self.path(ending + ".tarn")
            done = run("export", cloud, "-o", out, "-q")
            self.assertEqual(done.returncode, 0, done.stderr)
            self.assertEqual(run("import", out, "-o", again, "-q").returncode, 0)
            facts = json.loads(run("info", again, "--json").stdout)
            self.assertEqual(facts["points"], 200)
            self.assertEqual(facts["bounds"], {"min": [0.25, 0.5, -1.125],
                                               "max": [99.25, 6.5, -1.125]})
            self.assertEqual([d["name"] for d in facts["dimensions"]], ["intensity"])
        with open(self.path("points.csv")) as file:
            lines = file.read().split("\n")
        self.assertEqual(lines[0], "x,y,z,intensity")
        self.assertEqual(sorted(lines[1:-1]), sorted(
            2 * [f"{i}.25,{i % 7}.5,-1.125,{i}" for i in range(100)]))
        selected = self.path("selected.pcd")
        done = run("query", cloud, '#num{type=double}("x", <, 10)', "-o", selected, "-q")
        self.assertEqual(done.returncode, 0, done.stderr)
        with open(selected, "rb") as file:
            self.assertIn(b"\nPOINTS 20\nDATA binary\n", file.read())

    def test_info_tells_of_every_format(self):
        ply = self.path("info.ply")
        with open(ply, "w") as file:
            file.write("ply\nformat ascii 1.0\nelement vertex 2\nproperty float x\n"
                       "property float y\nproperty float z\nproperty uchar kind\nend_header\n"
                       "1.5 2 3 4\n-1 nan 0 1\n")
        done = run("info", ply)
        self.assertEqual(done.returncode, 0, done.stderr)
        for part in ("1 points", "1.5, 2, 3", "x y z kind", "note: 1 point has no place"):
            self.assertIn(part, done.stdout)
        facts = json.loads(run("info", ply, "--json").stdout)
        self.assertEqual(facts["points"], 1)
        self.assertEqual(facts["dimensions"][0]["type"], "uint8_t")
        self.assertEqual(len(facts["notes"]), 1)

    def test_text_that_is_wrong_is_refused_with_its_line(self):
        text = self.path("wrong.csv")
        with open(text, "w") as file:
            file.write("x,y,z,kind\n1,2,3,4\n1,2,3,tree\n")
        self.assert_fails(run("import", text, "-o", self.path("x.tarn")), "tree", "line 3",
                          "--columns", "kScanContradictory")
        self.assertFalse(os.path.exists(self.path("x.tarn")))
        self.assert_fails(run("import", text, "-o", self.path("x.tarn"), "--skip", "-1"), code=2)

    def test_iteration_that_is_not_there_is_refused(self):
        self.assert_fails(run("query", self.cloud, "#true()", "--iteration", 3), "iteration 3",
                          "kIndexOutOfRange")

    def test_unknown_ending_of_the_output_is_refused(self):
        self.assert_fails(run("query", self.cloud, "#true()", "-o", self.path("x.xyz")), ".las",
                          code=2)
        self.assert_fails(run("query", self.cloud, "#true()", "-o", ""), ".las", code=2)

    def test_failed_query_leaves_no_file(self):
        run("query", self.cloud, "bogus", "-o", self.path("never.las"))
        self.assertFalse(os.path.exists(self.path("never.las")))
        self.assertEqual(self.leftovers(), [])

    # -- thin

    def test_thin_writes_an_even_sample(self):
        coarse, fine = self.path("coarse.las"), self.path("fine.las")
        done = run("thin", self.cloud, "-o", coarse, "--level", 0)
        self.assertEqual(done.returncode, 0, done.stderr)
        everything, some = las_parts(self.scan)[1], las_parts(coarse)[1]
        self.assertRegex(done.stdout, r"^[\d,]+ points written to .*coarse\.las \(levels 0 to 0, "
                                      r"cells [\d.]+ units wide\)\n$")
        self.assertEqual(done.stdout.split()[0].replace(",", ""), str(some.total()))
        self.assertTrue(0 < some.total() < 60000 and some <= everything)
        done = run("thin", self.cloud, "-o", fine, "--spacing", 0.5, "-q")
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", ""))
        self.assertTrue(some < las_parts(fine)[1] <= everything)

    def test_thin_beyond_the_finest_level_gives_every_point_and_says_which_it_is(self):
        out = self.path("every.las")
        done = run("thin", self.cloud, "-o", out, "--level", 1000, "--iteration", 0)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(las_parts(out)[1], las_parts(self.scan)[1])
        self.assertNotIn("1000", done.stdout)

    def test_thin_used_wrongly_exits_with_two(self):
        out = self.path("wrong.las")
        for arguments, part in ((["-o", out], "--level or --spacing is required"),
                                (["-o", out, "--level", 1, "--spacing", 1], "excludes"),
                                (["-o", out, "--level", "x"], "--level"),
                                (["-o", out, "--level=-1"], "--level"),
                                (["-o", out, "--spacing", "0"], "--spacing"),
                                (["-o", out, "--spacing=-2"], "--spacing"),
                                (["--level", 1], "--output is required"),
                                (["-o", self.path("wrong.png"), "--level", 1],
                                 "does not end in .las")):
            done = run("thin", self.cloud, *arguments)
            self.assert_fails(done, "tarn: ", part, "tarn thin --help", code=2)
            self.assertEqual(done.stdout, "")
        self.assertFalse(os.path.exists(out))

    def test_thin_that_cannot_be_done_exits_with_one(self):
        out = self.path("absent", "never.las")
        self.assert_fails_clearly(run("thin", self.cloud, "-o", out, "--level", 1, "-q"), "absent")
        out = self.path("never.las")
        self.assert_fails_clearly(
            run("thin", self.path("absent.tarn"), "-o", out, "--level", 1), "kNotARepository")
        self.assert_fails_clearly(
            run("thin", self.cloud, "-o", out, "--level", 1, "--iteration", 3), "kIndexOutOfRange")
        self.assertFalse(os.path.exists(out))
        self.assertEqual(self.leftovers(), [])

    # -- render

    def png_size(self, path):
        with open(path, "rb") as file:
            head = file.read(24)
        self.assertEqual(head[:8], b"\x89PNG\r\n\x1a\n")
        return struct.unpack(">II", head[16:24])

    def test_render_makes_a_picture(self):
        out = self.path("street.png")
        done = run("render", self.cloud, "-o", out)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(self.png_size(out), (1600, 1000))
        self.assertRegex(done.stdout, r"^[\d,]+ of 60,000 points drawn to .*street\.png "
                                      r"\(1600 x 1000\)\n$")
        self.assertEqual(done.stderr, "drawing …\n")

    def test_render_as_the_help_shows(self):
        out = self.path("help.png")
        for arguments in (["--view", "top", "--color", "elevation", "--size", "240x240"],
                          ["--select", '#num{type=int}("classification", ==, 6)', "--size", "99x70"],
                          ["--eye", "500300,4500290,260", "--target", "500420,4500300,215",
                           "--size", "64x48", "--points", "30k", "--color", "return"]):
            done = run("render", self.cloud, "-o", out, *arguments)
            self.assertEqual(done.returncode, 0, done.stderr)
            size = arguments[arguments.index("--size") + 1]
            self.assertEqual("%dx%d" % self.png_size(out), size)
            self.assertEqual("selected" in done.stdout, "--select" in arguments)

    def test_render_looks_from_where_it_is_told(self):
        pictures = set()
        for view in ("top", "front", "side", "iso"):
            for color in ("rgb", "intensity", "classification", "elevation", "return"):
                out = self.path("view.png")
                done = run("render", self.cloud, "-o", out, "--view", view, "--color", color,
                           "--size", "80x50", "-q")
                self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", ""))
                with open(out, "rb") as file:
                    pictures.add(file.read())
        self.assertEqual(len(pictures), 20)

    def test_render_draws_no_more_points_than_allowed(self):
        done = run("render", self.cloud, "-o", self.path("few.png"), "--points", "40k")
        self.assertEqual(done.returncode, 0, done.stderr)
        drawn = int(done.stdout.split()[0].replace(",", ""))
        self.assertTrue(0 < drawn <= 40000)

    def test_render_used_wrongly_exits_with_two(self):
        out = self.path("wrong.png")
        wrong = [(["--size", size], "--size") for size in
                 ("160", "0x100", "100x0", "100x", "x100", "100x100x", "-1x5", "16385x1", "1x16385",
                  "99999999999999999999x1", "a x b", "")]
        wrong += [(["--points", points], "--points") for points in
                  ("0", "-1", "3T", "k", "", "99999999999999999999", "99999999999999999G")]
        wrong += [(["--view", "below"], "--view"), (["--color", "pink"], "--color"),
                  (["--eye", "1,2,3"], "--target"), (["--target", "1,2,3"], "--eye"),
                  (["--eye", "1,2", "--target", "1,2,3"], "--eye"),
                  (["--eye", "1,2,x", "--target", "1,2,3"], "--eye"),
                  (["--eye", "1,2,3", "--target", "4,5,6", "--view", "top"], "--view"),
                  (["--iteration", "-1"], "--iteration")]
        for arguments, part in wrong:
            done = run("render", self.cloud, "-o", out, *arguments)
            self.assert_fails(done, "tarn: ", part, "tarn render --help", code=2)
        for output in ("wrong.jpg", "wrong", "main"):
            self.assert_fails(run("render", self.cloud, "-o", self.path(output)),
                              "does not end in .png", code=2)
        self.assert_fails(run("render", self.cloud), "--output is required", code=2)
        self.assertFalse(os.path.exists(out))

    def test_render_that_cannot_be_done_exits_with_one(self):
        out = self.path("never.png")
        for arguments, part in (
                ([self.path("absent.tarn")], "kNotARepository"),
                ([self.cloud, "--iteration", 3], "kIndexOutOfRange"),
                ([self.cloud, "--eye", "1,2,3", "--target", "1,2,3"], "kPictureRefused"),
                ([self.cloud, "--eye", "1,2,inf", "--target", "1,2,3"], "kPictureRefused"),
                ([self.cloud, "--select", "#nonsense()"], "kQueryRejected"),
                ([self.cloud, "--select", '#num{type=int}("intensty", >, 5)'], '"intensity"')):
            self.assert_fails_clearly(run("render", *arguments, "-o", out), part)
        self.assert_fails_clearly(
            run("render", self.cloud, "-o", self.path("absent", "never.png"), "--size", "9x9", "-q"),
            "absent")
        self.assertFalse(os.path.exists(out))
        self.assertEqual(self.leftovers(), [])


if __name__ == "__main__":
    TARN = os.path.abspath(sys.argv.pop(1))
    unittest.main(verbosity=2)
