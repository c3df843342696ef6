// E57 files made for tests, page checksums included.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "OOCPointCloud/support/Bytes.h"
#include "tests/support/ScanContent.h"

namespace oocpctest {

/// Values of `bits` bits each, lowest bits first.
inline std::string PackBits(const std::vector<std::uint64_t>& values, unsigned bits) {
  std::string bytes;
  std::size_t at = 0;
  for (const std::uint64_t value : values) {
    for (unsigned bit = 0; bit < bits; ++bit, ++at) {
      if (at % 8 == 0) bytes += '\0';
      if ((value >> bit & 1u) != 0) bytes.back() = static_cast<char>(bytes.back() | 1 << at % 8);
    }
  }
  return bytes;
}

template <typename T>
std::string PackNumbers(const std::vector<T>& values) {
  std::string bytes;
  for (const T value : values) PutNumber(bytes, value);
  return bytes;
}

/// One scan: the elements of its prototype, its streams, and what else its element holds.
struct E57TestScan {
  std::string prototype;
  std::vector<std::string> streams;
  std::uint64_t recordCount = 0;
  std::string more{};               ///< a pose
  std::size_t streamBytes = 60000;  ///< of each stream in a packet
  bool hasPoints = true;
};

class E57Builder {
 public:
  std::uint8_t sectionKind = 1;
  std::uint8_t packetKind = 1;
  std::uint32_t version = 1;
  std::string xmlTail;  ///< behind the root's end

  std::string Build(const std::vector<E57TestScan>& scans) {
    logical_.assign(48, '\0');
    std::string data;
    for (const E57TestScan& scan : scans) {
      data += "<vectorChild type=\"Structure\">" + scan.more;
      if (scan.hasPoints) {
        data += "<points type=\"CompressedVector\" fileOffset=\"" +
                std::to_string(Physical(logical_.size())) + "\" recordCount=\"" +
                std::to_string(scan.recordCount) + "\"><prototype type=\"Structure\">" +
                scan.prototype + "</prototype></points>";
        AddSection(scan);
      }
      data += "</vectorChild>";
    }
    const std::string xml =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<e57Root type=\"Structure\"><data3D "
        "type=\"Vector\">" +
        data + "</data3D></e57Root>" + xmlTail;
    const std::size_t xmlAt = logical_.size();
    logical_ += xml;
    logical_.resize((logical_.size() + 1019) / 1020 * 1020);
    std::string header = "ASTM-E57";
    PutNumber(header, version);
    PutNumber(header, std::uint32_t{0});
    PutNumber(header, std::uint64_t{logical_.size() / 1020 * 1024});
    PutNumber(header, Physical(xmlAt));
    PutNumber(header, std::uint64_t{xml.size()});
    PutNumber(header, std::uint64_t{1024});
    logical_.replace(0, header.size(), header);
    return Seal(logical_);
  }

  /// Puts a checksum behind every 1020 bytes.
  static std::string Seal(const std::string& logical) {
    std::string file;
    for (std::size_t at = 0; at < logical.size(); at += 1020) {
      const std::string page = logical.substr(at, 1020);
      const std::uint32_t checksum =
          oocpc::Crc32c({reinterpret_cast<const std::uint8_t*>(page.data()), page.size()});
      file += page;
      PutNumber(file, checksum, true);
    }
    return file;
  }

 private:
  static std::uint64_t Physical(std::uint64_t logical) {
    return logical / 1020 * 1024 + logical % 1020;
  }

  void AddSection(const E57TestScan& scan) {
    const std::size_t begin = logical_.size();
    logical_.append(32, '\0');
    logical_[begin] = static_cast<char>(sectionKind);
    AddPacket(2, std::string(4, '\0'));  // an empty one, which readers pass over
    std::vector<std::size_t> done(scan.streams.size());
    for (bool more = true; more;) {
      more = false;
      std::string lengths;
      std::string content;
      for (std::size_t i = 0; i < done.size(); ++i) {
        const std::string part = scan.streams[i].substr(done[i], scan.streamBytes + i);
        PutNumber(lengths, static_cast<std::uint16_t>(part.size()));
        content += part;
        done[i] += part.size();
        more = more || done[i] < scan.streams[i].size();
      }
      std::string body;
      PutNumber(body, static_cast<std::uint16_t>(done.size()));
      AddPacket(packetKind, body + lengths + content);
    }
    std::string head(8, '\0');
    head[0] = static_cast<char>(sectionKind);
    PutNumber(head, std::uint64_t{logical_.size() - begin});
    PutNumber(head, Physical(begin + 32));
    logical_.replace(begin, head.size(), head);
  }

  void AddPacket(std::uint8_t kind, std::string body) {
    while (body.size() % 4 != 0) body += '\0';
    logical_ += static_cast<char>(kind);
    logical_ += '\0';
    std::string length;
    PutNumber(length, static_cast<std::uint16_t>(body.size() + 3));
    logical_ += length + body;
  }

  std::string logical_;
};

}  // namespace oocpctest
