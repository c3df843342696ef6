"""Runs the program as a user would: expected output, error output and exit code.

usage: program_test.py TARN
"""

import collections
import fcntl
import json
import os
import pty
import re
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
        self.assert_fails(run(), "tarn: a command is required\n  tarn --help tells", code=2)

    def test_counts_may_be_written_in_thousands_and_millions_everywhere(self):
        scan = self.path("counted.las")
        for points, count in (("2k", 2000), ("3K", 3000), ("0", 0), ("1000", 1000)):
            done = run("synthesize", "-o", scan, "--points", points, "--overwrite")
            self.assertEqual(done.stdout.split(" points")[0], f"{count:,}", done.stderr)
        self.assertEqual(run("query", self.cloud, "#true()", "--count", "--limit", "7k").stdout,
                         "7000\n")
        self.assertEqual(run("query", self.cloud, "#true()", "--count", "--limit", "1m").stdout,
                         "60000\n")
        text, cloud = self.path("counted.txt"), self.path("counted.tarn")
        with open(text, "w", encoding="utf-8") as file:
            file.writelines(f"{i} 2 3\n" for i in range(1500))
        self.assertEqual(run("import", text, "-o", cloud, "--skip", "1k", "-q").returncode, 0)
        self.assertEqual(json.loads(run("info", cloud, "--json").stdout)["points"], 500)
        wrong = ("k", "1.5M", "2kk", "3T", "-1k", "1 k", "99999999999999999G")
        for command in (["synthesize", "-o", scan, "--overwrite", "--points"],
                        ["query", self.cloud, "#true()", "--limit"],
                        ["import", text, "-o", cloud, "--overwrite", "--skip"]):
            for count in wrong:
                command[-1] = command[-1].split("=")[0] + "=" + count
                self.assert_fails(run(*command), f'"{count}" is no number such as', code=2)

    def test_unknown_command_is_answered_with_the_nearest(self):
        self.assert_fails(run("querry", self.cloud), 'no command "querry"', '"query"', code=2)
        self.assert_fails(run("bogus"), 'no command "bogus"', "tarn --help", code=2)

    def test_unknown_option_is_named_with_the_nearest(self):
        query, out = ["query", self.cloud, "#true()"], self.path("never.tarn")
        for arguments, said in (
                (query + ["--limt", 5], '"--limt"; did you mean "--limit"?'),
                (query + ["--limt=5"], '"--limt"; did you mean "--limit"?'),
                (["query", "--limt", 5, self.cloud, "#true()"], '"--limt"; did you mean "--limit"?'),
                (query + ["--Count"], '"--Count"; did you mean "--count"?'),
                (["import", self.scan, "--otput", out], '"--otput"; did you mean "--output"?'),
                (["--verson"], '"--verson"; did you mean "--version"?'),
                (query + ["--bogusness"], '"--bogusness"\n'), (query + ["-x"], '"-x"\n'),
                (query + ["---"], '"---"\n'), (["-x", "info", self.cloud], '"-x"\n')):
            done = run(*arguments)
            self.assert_fails(done, "tarn: there is no option " + said, "--help", code=2)
            self.assertEqual(done.stderr.count("\n"), 2, done.stderr)
        self.assertFalse(os.path.exists(out))

    def test_arguments_too_many_are_named_in_their_order(self):
        self.assert_fails(run("info", self.cloud, "one"), 'tarn: one argument too many: "one"\n',
                          "tarn info --help", code=2)
        self.assert_fails(run("info", "--", self.cloud, "one", "--two"),
                          'tarn: arguments too many: "one", "--two"\n', code=2)

    def test_option_without_its_value_is_said_to_need_one(self):
        self.assert_fails(run("export", self.cloud, "-o"), "tarn: --output needs a value\n", code=2)
        self.assert_fails(run("query", self.cloud, "#true()", "--limit"),
                          "tarn: --limit needs a value\n", code=2)

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

    @staticmethod
    def run_abandoned(*arguments):
        """Runs it with a standard output that nobody reads any more."""
        reading, writing = os.pipe()
        os.close(reading)
        with os.fdopen(writing, "wb") as output:
            return subprocess.run([TARN, *arguments], stdout=output, stderr=subprocess.PIPE,
                                  text=True, timeout=60)

    def test_reader_that_closes_the_pipe_early_is_no_failure(self):
        for command in (["info", self.cloud, "--json"], ["query", self.cloud, "#true()", "--count"],
                        ["--help"], ["info", "--help"], ["--version"]):
            done = self.run_abandoned(*command)
            self.assertEqual((done.returncode, done.stderr), (141, ""), command)

    def test_failure_is_said_and_its_code_given_although_nobody_reads_the_output(self):
        copy = self.path("unread.tarn")
        shutil.copytree(self.cloud, copy)
        self.harm(os.path.join(copy, "DEF_COLUMN_0"), "alter")
        self.assertEqual(self.run_abandoned("verify", copy, "--json").returncode, 1)
        self.assert_fails(self.run_abandoned("info"), "REPOSITORY is required", code=2)

    def test_reader_that_closes_the_pipe_after_a_line_has_it(self):
        done = subprocess.run(["bash", "-c", '"$0" info "$1" --stats --json | head -1; '
                               'echo "${PIPESTATUS[0]}"', TARN, self.cloud],
                              capture_output=True, text=True, timeout=60)
        line, code = done.stdout.split()
        self.assertEqual((line, done.stderr), ("{", ""))
        self.assertIn(code, ("0", "141"))  # head may have read all that there was

    def test_named_pipe_that_is_closed_early_ends_the_writing_and_is_named(self):
        pipe = self.path("pipe.csv")
        os.mkfifo(pipe)
        process = subprocess.Popen([TARN, "query", self.cloud, "#true()", "-o", pipe],
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        with open(pipe, encoding="utf-8") as file:
            self.assertTrue(file.readline().startswith("x,y,z,"))
        _, said = process.communicate(timeout=60)
        os.remove(pipe)
        self.assertEqual(process.returncode, 1)
        self.assertIn("tarn: the reader of this pipe closed it (" + pipe + ")", said)

    def test_progress_is_rewritten_on_a_terminal_and_plain_elsewhere(self):
        plain = run("export", self.cloud, "-o", self.path("plain.las"))
        self.assertEqual(plain.stderr, "writing …\n")
        quiet = run("export", self.cloud, "-o", self.path("plain.las"), "-q", "--overwrite")
        self.assertEqual((quiet.stdout, quiet.stderr), ("", ""))
        terminal, side = pty.openpty()
        process = subprocess.Popen([TARN, "export", self.cloud, "-o", self.path("plain.las"),
                                    "--overwrite"],
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

    def test_export_says_when_a_copc_file_has_its_coordinate_system_as_keys_alone(self):
        said = "given as GeoTIFF keys"
        text = run("export", self.cloud, "-o", self.path("text.copc.laz"))
        self.assertEqual(text.returncode, 0, text.stderr)
        self.assertNotIn(said, text.stdout)
        with open(self.scan, "rb") as file:
            scan = bytearray(file.read())
        struct.pack_into("<H", scan, 375 + 18, 34735)  # the number of its only record
        with open(self.path("keys.las"), "wb") as file:
            file.write(scan)
        cloud, out = self.path("keys.tarn"), self.path("keys.copc.laz")
        self.assertEqual(run("import", self.path("keys.las"), "-o", cloud, "-q").returncode, 0)
        self.assertIn(said, run("export", cloud, "-o", out).stdout)
        self.assertEqual(run("export", cloud, "-o", out, "--overwrite", "-q").stdout, "")

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
        self.assertRegex(run("query", cloud, "#true()", "--stats").stdout, r"\nsource +\(strings\)\n")
        facts = json.loads(run("query", cloud, "#true()", "--stats", "--json").stdout)
        self.assertEqual(facts["strings_without_statistics"], ["source"])

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
        table = self.path("ordered.csv")
        self.assertEqual(run("export", cloud, "-o", table, "-q").returncode, 0)
        with open(table, encoding="utf-8") as file:
            places = [int(line.rsplit(",", 1)[1]) for line in file.read().split("\n")[1:-1]]
        self.assertEqual(places, list(range(60000)))

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
        done = run("append", cloud, self.scan)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn("tarn: note: ", done.stderr)
        self.assertIn("seems to be in the cloud already", done.stderr)
        quiet = run("append", cloud, self.scan, "-q")
        self.assertEqual((quiet.returncode, quiet.stdout, quiet.stderr), (0, "", ""))

    def test_synthesize_writes_laz_and_nothing_but_scans(self):
        out, plain = self.path("made.laz"), self.path("made.las")
        for name in (out, plain):
            self.assertEqual(run("synthesize", "-o", name, "--points", 5000, "-q").returncode, 0)
        self.assertLess(os.path.getsize(out), os.path.getsize(plain) / 2)
        self.assertEqual(run("info", "--checksum", out).stdout,
                         run("info", "--checksum", plain).stdout)
        self.assert_fails(run("synthesize", "-o", self.path("made.png")), ".laz", code=2)

    def test_written_files_are_kept_unless_overwritten(self):
        commands = {".las": (["export", self.cloud], ["thin", self.cloud, "--level", 0],
                             ["query", self.cloud, "#true()"], ["synthesize", "--points", 100]),
                    ".copc.laz": (["export", self.cloud],),
                    ".csv": (["export", self.cloud], ["query", self.cloud, "#true()", "--limit", 9]),
                    ".png": (["render", self.cloud, "--size", "60x40", "--points", 1000],)}
        for ending, made in commands.items():
            out = self.path("kept" + ending)
            for command in made:
                with open(out, "w", encoding="utf-8") as file:
                    file.write("mine")
                command = command + ["-o", out]
                if command[0] != "query":
                    command.append("-q")
                self.assert_fails_clearly(run(*command), "there already is a file of that name")
                self.assert_fails(run(*command), "--overwrite", "kAlreadyExists")
                with open(out, encoding="utf-8") as file:
                    self.assertEqual(file.read(), "mine")
                done = run(*command, "--overwrite")
                self.assertEqual(done.returncode, 0, done.stderr)
                self.assertNotEqual(os.path.getsize(out), 4)
                os.remove(out)
        self.assert_fails(run("query", self.cloud, "#true()", "--overwrite"), "--output", code=2)
        self.assertEqual(self.leftovers(), [])

    def test_failed_overwrite_of_a_file_keeps_it(self):
        harmed = self.path("unsound.tarn")
        shutil.copytree(self.cloud, harmed)
        for stream in os.listdir(harmed):
            if stream.startswith("DEF_COLUMN_") and not stream.endswith("_BLOCKS"):
                self.harm(os.path.join(harmed, stream), "alter")
        commands = {".las": (["export", harmed], ["thin", harmed, "--level", 9],
                             ["query", harmed, "#true()"]),
                    ".laz": (["export", harmed],), ".copc.laz": (["export", harmed],),
                    ".csv": (["export", harmed], ["query", harmed, "#true()"]),
                    ".ply": (["export", harmed],), ".pcd": (["export", harmed],),
                    ".png": (["render", harmed, "--size", "4000x4000"],)}
        for ending, made in commands.items():
            out = self.path("kept" + ending)
            with open(out, "w", encoding="utf-8") as file:
                file.write("mine")
            for command in made:
                self.assert_fails(run(*command, "-o", out, "--overwrite"), "kChecksumMismatch")
                with open(out, encoding="utf-8") as file:
                    self.assertEqual(file.read(), "mine", command)
            os.remove(out)
        shutil.rmtree(harmed)
        self.assertEqual(self.leftovers(), [])

    def test_output_that_cannot_be_written_is_said_before_the_work(self):
        absent = self.path("absent.tarn")  # which would be said first, if it was opened first
        for command, ending in ((["export", absent], ".las"), (["render", absent], ".png"),
                                (["query", absent, "#true()"], ".csv"), (["synthesize"], ".las"),
                                (["thin", absent, "--level", 0], ".laz")):
            out = os.path.join(self.folder, "no", "out" + ending)
            self.assert_fails_clearly(run(*command, "-o", out), "there is no folder to write")

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
        done = run("import", self.scan, "-o", self.path("small.tarn"), "--memory", "256M")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertNotIn("note", done.stderr)
        for amount in ("0", "-5", "12X", "M", "1.5G", "99999999999G", "4GG", ""):
            done = run("import", self.scan, "-o", self.path("x.tarn"), f"--memory={amount}")
            self.assertEqual(done.returncode, 2, amount)
            self.assertIn("--memory", done.stderr)
            self.assertFalse(os.path.exists(self.path("x.tarn")))

    def test_memory_below_the_least_is_raised_with_a_note(self):
        cloud, out = self.path("little.tarn"), self.path("little.las")
        note = "tarn: note: --memory 255M is less than is needed: up to 256M are used\n"
        for command in (["import", self.scan, "-o", cloud], ["append", cloud, self.scan],
                        ["export", cloud, "-o", out]):
            done = run(*command, "--memory", "255M")
            self.assertEqual(done.returncode, 0, done.stderr)
            self.assertEqual(done.stderr.count(note), 1, done.stderr)
        done = run("import", self.scan, "-o", cloud, "--overwrite", "-q", "--memory", "255M")
        self.assertEqual((done.returncode, done.stderr), (0, ""))

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
        self.assertRegex(plain, r"\n  octree +[\d,]+ nodes, \d+ deep\n  detail +levels 0 to \d+ "
                                r"\(thin --level\), spacing [\d.e+-]+ to [\d.e+-]+\n")
        full = run("info", self.cloud, "--schema", "--stats", "--metadata").stdout
        for part in ("uint16_t x 3", "minimum", "LAS 1.4, point format 7", "LASF_Projection 2112"):
            self.assertIn(part, full)

    def test_info_and_query_tell_the_same_means(self):
        told = run("info", self.cloud, "--stats").stdout.split("\n")
        asked = run("query", self.cloud, "#true()", "--stats").stdout.split("\n")
        for name in ("intensity", "gps_time", "scan_angle"):
            means = [line.split()[-1] for line in told + asked if line.startswith(name + " ")]
            self.assertEqual(len(means), 2)
            self.assertEqual(means[0], means[1], name)
        self.assertRegex("\n".join(told), r"\ngps_time .* 40\d{7}\.\d+\n")

    def test_info_of_a_scan_says_its_name_and_points_once(self):
        told = run("info", self.scan).stdout
        self.assertEqual(told.count("60,000 points"), 1, told)
        self.assertEqual(told.count("street.las"), 1, told)
        self.assertIn("\nheader:\n  LAS 1.4, point format 7, ", told)
        self.assertIn("\ncoordinate system:\nPROJCS", told)
        self.assertEqual(run("info", self.cloud, "--metadata").stdout.count("60,000 points"), 2)

    def test_bounds_of_a_header_are_told_without_rounding_errors(self):
        with open(self.scan, "rb") as file:
            scan = bytearray(file.read())
        for least_x, told in ((500286.32700000005, "500286.327,"), (500286.3274, "500286.3274,"),
                              (500286.0, "500286.000,")):
            struct.pack_into("<d", scan, 187, least_x)
            with open(self.path("bounds.las"), "wb") as file:
                file.write(scan)
            self.assertIn("\n  bounds       " + told, run("info", self.path("bounds.las")).stdout)

    def test_info_of_a_missing_path_tells_what_to_do(self):
        done = run("info", self.path("absent"))
        self.assert_fails_clearly(done, "check the path: it may name a repository or a scan file")

    def test_info_compares_with_the_size_as_las_where_the_source_is_one(self):
        self.assertRegex(run("info", self.cloud).stdout, r"\n  stored +[\d.]+ MB \(as LAS: 2\.2 MB\)\n")
        text, cloud = self.path("few.txt"), self.path("few.tarn")
        with open(text, "w", encoding="utf-8") as file:
            file.write("1 2 3\n4 5 6\n")
        self.assertEqual(run("import", text, "-o", cloud, "-q").returncode, 0)
        self.assertRegex(run("info", cloud).stdout, r"\n  stored +[\d.]+ \w+\n")
        self.assertEqual(json.loads(run("info", cloud, "--json").stdout)["las_bytes"], 0)

    def test_iterations_lists_the_one_there_is(self):
        self.assertRegex(run("iterations", self.cloud).stdout, r"^0  \d{4}-.* 60,000 points")
        facts = json.loads(run("iterations", self.cloud, "--json").stdout)
        self.assertEqual([entry["points"] for entry in facts], [60000])

    def test_damaged_iterations_are_named_and_the_sound_ones_told(self):
        worn = self.path("record.tarn")
        shutil.copytree(self.cloud, worn)
        for _ in range(2):
            self.assertEqual(run("append", worn, self.scan).returncode, 0)
        sound = run("iterations", worn).stdout.splitlines()
        times = [it["time_point"] for it in json.loads(run("iterations", worn, "--json").stdout)]
        self.alter(os.path.join(worn, "DEF_UPDATE_ITERATIONS"), 80 + 40)
        done = run("iterations", worn)
        self.assertEqual(done.returncode, 0, done.stderr)
        listed = done.stdout.splitlines()
        self.assertEqual([listed[0], listed[2]], [sound[0], sound[2]])
        self.assertIn("1  damaged: its record cannot be read; tarn verify tells more", listed[1])
        facts = json.loads(run("iterations", worn, "--json").stdout)
        self.assertEqual([it["damaged"] for it in facts], [False, True, False])
        self.assertEqual(facts[1], {"iteration": 1, "damaged": True})
        told = run("info", worn)
        self.assertEqual(told.returncode, 0, told.stderr)
        self.assertIn("180,000 points", told.stdout)
        self.assertIn("iterations   3, newest", told.stdout)
        self.assertIn("iteration 1 is damaged", told.stdout)
        self.assertEqual(json.loads(run("info", worn, "--json").stdout)["damaged_iterations"], [1])
        # A time tells the iteration where the damaged one cannot be meant.
        at = ["query", worn, "#true()", "--count", "--at"]
        self.assertEqual(run(*at, times[2]).stdout, "180000\n")
        self.assert_fails(run(*at, times[0]), "iteration 1", "kChecksumMismatch", "tarn verify")
        self.assert_fails(run(*at, times[0] - 1), "no iteration of that time or before")
        self.assert_fails(run("info", worn, "--iteration", 1), "kChecksumMismatch", "tarn verify")
        self.alter(os.path.join(worn, "DEF_UPDATE_ITERATIONS"), 160 + 40)
        self.assertIn("iterations   3, newest unknown",
                      run("info", worn, "--iteration", 0).stdout)
        self.alter(os.path.join(worn, "DEF_UPDATE_ITERATIONS"), 40)
        self.assert_fails(run("iterations", worn), "kChecksumMismatch", "tarn verify")
        shutil.rmtree(worn)

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

    def test_what_reads_a_damaged_repository_says_what_to_do(self):
        harmed, out = self.path("hurt.tarn"), self.path("hurt.las")
        commands = (["info", harmed, "--stats"], ["query", harmed, "#true()", "-o", out],
                    ["export", harmed, "-o", out], ["append", harmed, self.scan])
        for stream, harm, what in (("DEF_COLUMN_0", "alter", "kChecksumMismatch"),
                                   ("DEF_COLUMN_1", "delete", "kStreamMissing"),
                                   ("DEF_COLUMN_1", "cut", "kStreamShort"),
                                   ("DEF_SOURCES", "alter", "kChecksumMismatch"),
                                   ("main", "alter", "kCatalogueMismatch")):
            for command in commands:
                if (stream, command[0]) == ("DEF_COLUMN_0", "info"):
                    continue  # it reads what the table says of positions
                shutil.copytree(self.cloud, harmed)
                self.harm(os.path.join(harmed, stream), harm)
                done = run(*command)
                self.assert_fails(done, what, "tarn verify", "tarn repair")
                self.assertTrue(stream in ("main", "DEF_COLUMN_0") or stream in done.stderr)
                self.assertFalse(os.path.exists(out))
                shutil.rmtree(harmed)

    def test_info_gives_the_statistics_of_a_scan_file_too(self):
        told = run("info", self.scan, "--stats").stdout
        of_cloud = run("info", self.cloud, "--stats").stdout
        for name in ("intensity", "classification", "return_number"):
            line = re.search(rf"^{name} +\S+ +\S+ ", of_cloud, re.MULTILINE).group(0)
            self.assertIn(line, told)
        facts = json.loads(run("info", self.scan, "--stats", "--json").stdout)
        self.assertTrue(all("mean" in dimension for dimension in facts["dimensions"]))

    def test_export_writes_what_damage_left_when_asked(self):
        harmed, out = self.path("maimed.tarn"), self.path("left.las")
        shutil.copytree(self.cloud, harmed)
        self.harm(os.path.join(harmed, "DEF_COLUMN_1"), "alter")
        self.assert_fails(run("repair", harmed), "no iteration is intact", "--skip-damaged")
        self.assert_fails(run("export", harmed, "-o", self.path("left.csv"), "--skip-damaged"),
                          "is for .las and .laz files", code=2)
        done = run("export", harmed, "-o", out, "--skip-damaged")
        self.assertEqual(done.returncode, 0, done.stderr)
        lost = int(re.search(r"tarn: ([\d,]+) points? damaged, and left out", done.stderr).group(1)
                   .replace(",", ""))
        before = int(run("query", self.cloud, "#true()", "--count").stdout)
        self.assertEqual(json.loads(run("info", out, "--json").stdout)["points"], before - lost)
        self.assertGreater(lost, 0)
        os.remove(out)
        shutil.rmtree(harmed)

    def test_who_finds_the_main_stream_missing_is_told_of_its_copy(self):
        headless = self.path("headless.tarn")
        shutil.copytree(self.cloud, headless)
        os.remove(os.path.join(headless, "main"))
        for command in (["info", headless], ["verify", headless], ["append", headless, self.scan]):
            self.assert_fails(run(*command), "the main stream of the repository is missing",
                              "tarn repair brings it back from its copy")
        os.remove(os.path.join(headless, "main.copy"))
        self.assert_fails(run("verify", headless), "there is no repository at that place")
        shutil.rmtree(headless)

    def test_verify_says_that_the_newest_iteration_is_intact(self):
        grown = self.path("worn.tarn")
        shutil.copytree(self.cloud, grown)
        # Its levels of detail are all that an append makes anew for the whole cloud.
        self.assertEqual(run("append", grown, self.scan).returncode, 0)
        self.harm(os.path.join(grown, "DEF_OCTREE_LOD_NODES_0"), "alter")
        self.assert_fails(run("verify", grown), "1 fault found",
                          "the newest iteration is intact; tarn repair renews the main stream and "
                          "its copy, the rest only a backup has")
        repaired = run("repair", grown)
        self.assertEqual(repaired.returncode, 0)
        self.assertIn("the newest iteration is intact; nothing was changed", repaired.stdout)
        self.assertIn("iteration 0 is damaged and stays so", repaired.stdout)
        self.harm(os.path.join(grown, "DEF_COLUMN_0_BLOCKS"), "cut")
        self.assert_fails(run("verify", grown),
                          "tarn repair brings back the newest intact iteration")
        shutil.rmtree(grown)

    def test_repair_brings_back_a_cloud_whose_newest_source_is_damaged(self):
        harmed = self.path("sourceless.tarn")
        shutil.copytree(self.cloud, harmed)
        more = self.path("sourceless.las")
        self.assertEqual(run("export", harmed, "-o", more).returncode, 0)
        before = int(run("query", harmed, "#true()", "--count").stdout)
        self.assertEqual(run("append", harmed, more).returncode, 0)
        sources = os.path.join(harmed, "DEF_SOURCES")
        self.alter(sources, os.path.getsize(sources) - 200)
        self.assertEqual(run("info", harmed).returncode, 1)
        done = run("repair", harmed)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn("lost: header, records and coordinate system of sourceless.las; all points "
                      "are there (60,000)", done.stdout)
        self.assertEqual(run("query", harmed, "#true()", "--count").stdout.strip(), str(2 * before))
        self.assertEqual(run("verify", harmed).returncode, 0)
        told = json.loads(run("info", harmed, "--json").stdout)
        self.assertEqual([(source["file"], source["points"], "las_version" in source)
                          for source in told["sources"]],
                         [("street.las", before, True), ("sourceless.las", before, False)])
        self.assertEqual(run("append", harmed, more).returncode, 0)
        self.assertEqual(run("verify", harmed).returncode, 0)

    def test_repair_keeps_each_point_at_its_place_in_the_sources(self):
        harmed, more = self.path("placed.tarn"), self.path("placed.las")
        made = run("synthesize", "-o", more, "--points", 5000, "--seed", 9, "-q")
        self.assertEqual(made.returncode, 0, made.stderr)
        for lost in ("head", "file"):
            made = run("import", self.scan, more, "-o", harmed, "--keep-order", "-q")
            self.assertEqual(made.returncode, 0, made.stderr)
            self.assertEqual(run("export", harmed, "-o", self.path("whole.las"), "--overwrite")
                             .returncode, 0)
            sources = os.path.join(harmed, "DEF_SOURCES")
            if lost == "head":
                self.alter(sources, 10)
            else:
                os.remove(sources)
            facts = json.loads(run("repair", harmed, "--json").stdout)
            self.assertEqual(facts["lost_sources"],
                             [{"file": "", "points": 60000 if lost == "head" else 65000}])
            self.assertEqual(run("verify", harmed).returncode, 0)
            self.assertIn("lost sources", run("info", harmed, "--metadata").stdout)
            # The points in their order, and those of a further scan behind them.
            self.assertEqual(run("append", harmed, more).returncode, 0)
            done = run("export", harmed, "-o", self.path("again.las"), "--overwrite")
            self.assertEqual(done.returncode, 0, done.stderr)
            _, records, _ = las_parts(self.path("again.las"))
            self.assertEqual(sum(records.values()), 70000)
            found = run("query", harmed, '#num{type=int64}("source_index", >=, 65000)',
                        "--count").stdout
            self.assertEqual(found, "5000\n")
            shutil.rmtree(harmed)

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
                told = json.loads(run("info", grown, "--json", *option).stdout)
                self.assertEqual([source["points"] for source in told["sources"]],
                                 (iteration + 1) * [before], "those of later points are left out")
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

    def test_repair_makes_levels_of_detail_anew(self):
        copy, picture = self.path("flat.tarn"), self.path("flat.png")
        shutil.copytree(self.cloud, copy)
        levels = json.loads(run("info", copy, "--json").stdout)["levels_of_detail"]
        os.remove(os.path.join(copy, "DEF_OCTREE_LOD_NODES_0"))
        self.assert_fails(run("info", copy), "DEF_OCTREE_LOD_NODES_0", "tarn repair")
        trial = run("repair", copy, "--dry-run")
        told = "iteration 1 has the points of iteration 0, and levels of detail made anew"
        self.assertIn("a repair would give this", trial.stdout)
        self.assertIn(told, trial.stdout)
        done = run("repair", copy)
        self.assertEqual(done.returncode, 0, done.stderr)
        for part in (told, "no point is lost: 60,000 points",
                     "iteration 0 is damaged and stays so"):
            self.assertIn(part, done.stdout)
        self.assertEqual(json.loads(run("info", copy, "--json").stdout)["levels_of_detail"], levels)
        self.assertEqual(run("render", copy, "-o", picture).returncode, 0)
        self.assert_fails(run("render", copy, "-o", picture, "--overwrite", "--iteration", 0),
                          "DEF_OCTREE_LOD_NODES_0", "tarn verify")
        self.assert_fails(run("verify", copy), "1 fault found", "the newest iteration is intact")
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
        told = run("query", self.cloud, "#true()", "--limit", 7).stdout
        self.assertIn("the first 7 selected points\n", told)
        self.assertNotIn("%", told.splitlines()[0])
        self.assertEqual(run("query", self.cloud, "#true()", "--limit", 0, "--count").stdout, "0\n")

    def test_statistics_as_text_and_as_json(self):
        text = '#num{type=int}("classification", ==, 2)'
        done = run("query", self.cloud, text, "--stats")
        self.assertIn("dimension", done.stdout)
        facts = json.loads(run("query", self.cloud, text, "--stats", "--json").stdout)
        self.assertEqual(facts["statistics"]["classification"],
                         {"count": facts["selected"], "nan": 0, "min": 2, "max": 2, "mean": 2.0})
        self.assertLess(facts["statistics"]["x"]["min"], facts["statistics"]["x"]["max"])

    def test_count_prints_a_number_before_what_else_is_asked_for(self):
        text = '#num{type=int}("classification", ==, 2)'
        counted = run("query", self.cloud, text, "--count").stdout
        self.assertTrue(counted.strip().isdigit())
        for option, head in (("--stats", "dimension "), ("--explain", "plan:")):
            lines = run("query", self.cloud, text, "--count", option).stdout.splitlines()
            self.assertEqual(lines[0], counted.strip())
            self.assertTrue(lines[1].startswith(head), lines[1])

    def test_explain_tells_the_plan_and_what_was_read(self):
        text = '#and(#num{type=uint8_t}("classification", ==, 2), #num{type=double}("z", >, 5))'
        done = run("query", self.cloud, text, "--explain")
        for part in ("plan:", "classification = 2", "blocks:", "bytes read"):
            self.assertIn(part, done.stdout)
        plan = json.loads(run("query", self.cloud, text, "--explain", "--json").stdout)["plan"]
        self.assertEqual(len(plan["tests"]), 2)
        self.assertIn("classification", [column["name"] for column in plan["columns"]])
        for test in plan["tests"]:
            self.assertIn(test["column"]["name"], ("classification", "DEF_POSITION"))
            self.assertIn(test["column"], plan["columns"])

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
        self.assertIn("tarn: note: " + text + ": 1 point has no place", done.stderr)
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
        for part in ("1 point", "1.5, 2, 3", "x y z kind", "note: 1 point has no place"):
            self.assertIn(part, done.stdout)
        facts = json.loads(run("info", ply, "--json").stdout)
        self.assertEqual(facts["points"], 1)
        self.assertEqual(facts["dimensions"][0]["type"], "uint8_t")
        self.assertEqual(len(facts["notes"]), 1)

    def test_text_that_is_wrong_is_refused_with_its_line(self):
        text = self.path("wrong.csv")
        with open(text, "w") as file:
            file.write("x,y,z,intensity\n1,2,3,4\n1,2,3,tree\n")
        self.assert_fails(run("import", text, "-o", self.path("x.tarn")), "tree", "line 3",
                          "--columns", "kScanContradictory")
        self.assertFalse(os.path.exists(self.path("x.tarn")))
        self.assert_fails(run("import", text, "-o", self.path("x.tarn"), "--skip", "-1"), code=2)

    def test_stages_of_the_import_of_a_text_are_told_by_what_they_do(self):
        text = self.path("stages.txt")
        with open(text, "w", encoding="utf-8") as file:
            file.write("1 2 3\n")
        done = run("import", text, "-o", self.path("stages.tarn"))
        self.assertEqual(done.stderr, "".join(stage + " …\n" for stage in (
            "opening", "decoding", "reading", "sorting", "writing")))

    def test_words_in_a_text_are_found_by_queries_and_written_again(self):
        text, cloud = self.path("words.csv"), self.path("words.tarn")
        with open(text, "w", encoding="utf-8") as file:
            file.write("x|y|z|kind\n1|2|3|ground\n4|5|6|tree, old\n7|8|9|ground\n")
        done = run("import", text, "-o", cloud, "--separator", "|")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn('tarn: note: ' + text + ': column "kind" holds texts', done.stderr)
        ground = '#num{type=string}("kind", ==, "ground")'
        self.assertEqual(run("query", cloud, ground, "--count").stdout, "2\n")
        out, again = self.path("again.csv"), self.path("again.tarn")
        self.assertEqual(run("export", cloud, "-o", out, "-q").returncode, 0)
        with open(out, encoding="utf-8") as file:
            self.assertIn('4,5,6,"tree, old"\n', file.read())
        self.assertEqual(run("import", out, "-o", again, "-q").returncode, 0)
        sums = [run("info", "--checksum", name).stdout for name in (text, cloud, out, again)]
        self.assertEqual(len(set(sums)), 1, sums)
        self.assertEqual(run("info", cloud, "--stats").returncode, 0)
        self.assert_fails(run("export", cloud, "-o", self.path("words.las")), "it holds texts",
                          "CSV")
        self.assert_fails(run("import", text, "-o", self.path("x.tarn"), "--separator", "||"),
                          "no separator", code=2)

    def test_info_of_a_scan_lists_its_schema_and_refuses_what_repositories_have(self):
        done = run("info", self.scan, "--schema")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertRegex(done.stdout, r"\nclassification +uint8_t ")
        for asked in (["--iteration", 0], ["--at", "2026-11-21"]):
            done = run("info", self.scan, *asked)
            self.assert_fails(done, asked[0], "repository", "tarn import", code=2)
            self.assertEqual(done.stdout, "")

    def test_interrupted_opening_of_a_text_stops_and_leaves_nothing(self):
        text, out = self.path("long.xyz"), self.path("long.tarn")
        with open(text, "w", encoding="utf-8") as file:
            line = "".join(f"{i}.125 {i % 977}.5 {i % 31}.75 {i % 255}\n" for i in range(200000))
            for _ in range(8):
                file.write(line)
        process = subprocess.Popen([TARN, "import", text, "-o", out], stdout=subprocess.DEVNULL,
                                   stderr=subprocess.PIPE, text=True)
        self.assertEqual(process.stderr.readline(), "opening …\n")
        process.send_signal(signal.SIGINT)
        said = process.communicate(timeout=60)[1]
        self.assertEqual(process.returncode, 1, said)
        self.assertIn("kStopped", said)
        self.assertNotIn("writing", said)
        self.assertFalse(os.path.exists(out))
        self.assertEqual(self.leftovers(), [])

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
        levels = json.loads(run("info", self.cloud, "--json").stdout)["levels_of_detail"]
        finest = len(levels) - 1
        note = f"tarn: note: the cloud has no finer level than {finest}: every point of it is written\n"
        self.assertIn(note, done.stderr)
        spacing = levels[-1]["spacing"]
        for asked, isBeyond in ((["--level", finest], False), (["--level", finest + 1], True),
                                (["--spacing", spacing], False), (["--spacing", spacing * 0.9], True)):
            done = run("thin", self.cloud, "-o", out, "--overwrite", *asked)
            self.assertEqual(note in done.stderr, isBeyond, (asked, done.stderr))
        quiet = run("thin", self.cloud, "-o", out, "--overwrite", "--level", 1000, "-q")
        self.assertEqual((quiet.returncode, quiet.stdout, quiet.stderr), (0, "", ""))

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
            done = run("render", self.cloud, "-o", out, "--overwrite", *arguments)
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
                           "--size", "80x50", "-q", "--overwrite")
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
