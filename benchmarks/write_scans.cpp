// Writes the points of a LAS file in formats that other programs write and tarn does not, for
// timing how they are read. Usage: write_scans SCAN.las PREFIX
// Makes PREFIX-ascii.ply, PREFIX-ascii.pcd, PREFIX-compressed.pcd, PREFIX.e57 and PREFIX.xyz, each
// with x, y, z, intensity and, where the scan has them, 8-bit colours.
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "OOCPointCloud/support/Bytes.h"
#include "host/common/OutputFile.h"
#include "host/formats/LasScan.h"

namespace {

using tarnhost::Outcome;
using tarnhost::OutputFile;

struct Point {
  double xyz[3];
  std::uint16_t intensity;
  std::uint8_t rgb[3];
};

void Check(const Outcome& outcome) {
  if (outcome.Ok()) return;
  std::fprintf(stderr, "write_scans: %s (%s)\n", outcome.what.c_str(), outcome.where.c_str());
  std::exit(1);
}

std::vector<Point> ReadPoints(const tarnhost::LasScan& scan) {
  const auto count = static_cast<std::size_t>(scan.GetPointCount());
  std::vector<std::uint8_t> records(count * scan.GetRecordBytes());
  scan.ReadRecords(0, count, records.data());
  const auto& dimensions = scan.GetDimensions();
  const auto values = [&](const char* name) {
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i < dimensions.size(); ++i) {
      if (dimensions[i].name != name) continue;
      bytes.resize(count * oocpc::ValueBytes(dimensions[i].type));
      scan.ExtractDimension(i, records.data(), count, bytes.data());
    }
    return bytes;
  };
  const std::vector<std::uint8_t> intensities = values("intensity");
  const std::vector<std::uint8_t> colors = values("DEF_COLOR");
  std::vector<Point> points(count);
  for (std::size_t i = 0; i < count; ++i) {
    std::int32_t stored[3];
    std::memcpy(stored, records.data() + i * scan.GetRecordBytes(), sizeof(stored));
    for (std::size_t axis = 0; axis < 3; ++axis) {
      points[i].xyz[axis] =
          stored[axis] * scan.GetTransform().scale[axis] + scan.GetTransform().offset[axis];
    }
    std::memcpy(&points[i].intensity, intensities.data() + 2 * i, 2);
    for (std::size_t part = 0; part < 3; ++part) {
      points[i].rgb[part] = colors.empty() ? 128 : colors[6 * i + 2 * part];
    }
  }
  return points;
}

void WriteFile(const std::string& name, const std::string& head, const std::string& body) {
  std::unique_ptr<OutputFile> file;
  Check(OutputFile::Create(name, file));
  Check(file->Write(head));
  Check(file->Write(body));
  Check(file->Commit());
}

std::string Lines(const std::vector<Point>& points) {
  std::string text;
  std::array<char, 200> line;
  for (const Point& p : points) {
    const int length =
        std::snprintf(line.data(), line.size(), "%.2f %.2f %.2f %u %u %u %u\n", p.xyz[0], p.xyz[1],
                      p.xyz[2], p.intensity, p.rgb[0], p.rgb[1], p.rgb[2]);
    text.append(line.data(), static_cast<std::size_t>(length));
  }
  return text;
}

template <typename T>
void Put(std::string& bytes, T value) {
  bytes.append(reinterpret_cast<const char*>(&value), sizeof(value));
}

/// LZF: runs of three bytes and more that stood at most 8192 bytes before, found by a hash.
std::string CompressLzf(const std::string& bytes) {
  std::string packed;
  std::vector<std::size_t> last(1u << 16, ~std::size_t{0});
  std::size_t literals = 0;
  const auto flush = [&](std::size_t end) {
    for (std::size_t at = end - literals; at < end;) {
      const std::size_t count = std::min<std::size_t>(32, end - at);
      packed += static_cast<char>(count - 1);
      packed.append(bytes, at, count);
      at += count;
    }
    literals = 0;
  };
  std::size_t at = 0;
  while (at + 3 <= bytes.size()) {
    std::uint32_t three = 0;
    std::memcpy(&three, bytes.data() + at, 3);
    std::size_t& place = last[three * 2654435761u >> 16];
    const std::size_t from = std::exchange(place, at);
    std::size_t length = 0;
    if (from < at && at - from <= 8192) {
      while (length < 264 && at + length < bytes.size() &&
             bytes[from + length] == bytes[at + length]) {
        ++length;
      }
    }
    if (length < 3) {
      ++literals;
      ++at;
      continue;
    }
    flush(at);
    const std::size_t distance = at - from - 1;
    const std::size_t code = std::min<std::size_t>(length - 2, 7);
    packed += static_cast<char>(code << 5 | distance >> 8);
    if (code == 7) packed += static_cast<char>(length - 9);
    packed += static_cast<char>(distance & 255);
    at += length;
  }
  literals += bytes.size() - at;
  flush(bytes.size());
  return packed;
}

/// Field by field, as compressed PCD files have them.
std::string Columns(const std::vector<Point>& points) {
  std::string bytes;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    for (const Point& p : points) Put(bytes, p.xyz[axis]);
  }
  for (const Point& p : points) Put(bytes, p.intensity);
  for (const Point& p : points) {
    Put(bytes, std::uint32_t{p.rgb[0]} << 16 | std::uint32_t{p.rgb[1]} << 8 | p.rgb[2]);
  }
  return bytes;
}

std::string PcdHead(std::size_t count, const char* fields, const char* data) {
  const std::string number = std::to_string(count);
  return std::string("VERSION 0.7\n") + fields + "WIDTH " + number +
         "\nHEIGHT 1\nVIEWPOINT 0 0 0 1 0 0 0\nPOINTS " + number + "\nDATA " + data + "\n";
}

/// An E57 file with one scan: coordinates as 64-bit floats, the rest as integers.
std::string MakeE57(const std::vector<Point>& points) {
  constexpr std::size_t kPacketPoints = 2000;
  constexpr std::size_t kContent = 1020;
  const auto physical = [](std::size_t at) { return at / kContent * 1024 + at % kContent; };
  std::string file(48, '\0');
  const std::size_t section = file.size();
  file.append(32, '\0');
  for (std::size_t first = 0; first < points.size(); first += kPacketPoints) {
    const std::size_t count = std::min(kPacketPoints, points.size() - first);
    std::array<std::string, 7> streams;
    for (std::size_t i = first; i < first + count; ++i) {
      const Point& p = points[i];
      for (std::size_t axis = 0; axis < 3; ++axis) Put(streams[axis], p.xyz[axis]);
      Put(streams[3], p.intensity);
      for (std::size_t part = 0; part < 3; ++part) Put(streams[4 + part], p.rgb[part]);
    }
    std::string body;
    Put(body, std::uint16_t{7});
    for (const std::string& stream : streams) Put(body, static_cast<std::uint16_t>(stream.size()));
    for (const std::string& stream : streams) body += stream;
    body.resize((body.size() + 3) / 4 * 4);
    file += std::string("\1\0", 2);
    Put(file, static_cast<std::uint16_t>(body.size() + 3));
    file += body;
  }
  std::string head(8, '\0');
  head[0] = 1;
  Put(head, std::uint64_t{file.size() - section});
  Put(head, std::uint64_t{physical(section + 32)});
  file.replace(section, head.size(), head);
  std::string xml =
      "<?xml version=\"1.0\"?><e57Root type=\"Structure\"><data3D type=\"Vector\">"
      "<vectorChild type=\"Structure\"><points type=\"CompressedVector\" "
      "fileOffset=\"" +
      std::to_string(physical(section)) + "\" recordCount=\"" + std::to_string(points.size()) +
      "\"><prototype type=\"Structure\">";
  for (const char* axis : {"X", "Y", "Z"}) {
    xml += std::string("<cartesian") + axis + " type=\"Float\"/>";
  }
  xml += "<intensity type=\"Integer\" minimum=\"0\" maximum=\"65535\"/>";
  for (const char* part : {"Red", "Green", "Blue"}) {
    xml += std::string("<color") + part + " type=\"Integer\" minimum=\"0\" maximum=\"255\"/>";
  }
  xml += "</prototype></points></vectorChild></data3D></e57Root>";
  const std::size_t xmlAt = file.size();
  file += xml;
  file.resize((file.size() + kContent - 1) / kContent * kContent);
  std::string start = "ASTM-E57";
  for (const std::uint32_t number : {1u, 0u}) Put(start, number);
  for (const std::size_t number :
       {file.size() / kContent * 1024, physical(xmlAt), xml.size(), std::size_t{1024}}) {
    Put(start, std::uint64_t{number});
  }
  file.replace(0, start.size(), start);
  std::string sealed;
  sealed.reserve(file.size() / kContent * 1024);
  for (std::size_t at = 0; at < file.size(); at += kContent) {
    const auto* page = reinterpret_cast<const std::uint8_t*>(file.data() + at);
    const std::uint32_t checksum = oocpc::Crc32c({page, kContent});
    sealed.append(file, at, kContent);
    for (const unsigned shift : {24u, 16u, 8u, 0u}) sealed += static_cast<char>(checksum >> shift);
  }
  return sealed;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: write_scans SCAN.las PREFIX\n");
    return 2;
  }
  const std::string prefix = argv[2];
  std::unique_ptr<tarnhost::LasScan> scan;
  Check(tarnhost::LasScan::Open(argv[1], scan));
  const std::vector<Point> points = ReadPoints(*scan);
  const std::string number = std::to_string(points.size());
  const std::string lines = Lines(points);
  WriteFile(prefix + ".xyz", "", lines);
  WriteFile(prefix + "-ascii.ply",
            "ply\nformat ascii 1.0\nelement vertex " + number +
                "\nproperty double x\nproperty double y\nproperty double z\nproperty ushort "
                "intensity\nproperty uchar red\nproperty uchar green\nproperty uchar "
                "blue\nend_header\n",
            lines);
  WriteFile(prefix + "-ascii.pcd",
            PcdHead(points.size(),
                    "FIELDS x y z intensity red green blue\nSIZE 8 8 8 2 1 1 1\n"
                    "TYPE F F F U U U U\nCOUNT 1 1 1 1 1 1 1\n",
                    "ascii"),
            lines);
  const std::string columns = Columns(points);
  const std::string packed = CompressLzf(columns);
  std::string lengths;
  Put(lengths, static_cast<std::uint32_t>(packed.size()));
  Put(lengths, static_cast<std::uint32_t>(columns.size()));
  WriteFile(prefix + "-compressed.pcd",
            PcdHead(points.size(),
                    "FIELDS x y z intensity rgb\nSIZE 8 8 8 2 4\nTYPE F F F U U\n"
                    "COUNT 1 1 1 1 1\n",
                    "binary_compressed") +
                lengths,
            packed);
  WriteFile(prefix + ".e57", "", MakeE57(points));
  return 0;
}
