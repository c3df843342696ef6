// Reads the tables of query texts.
#pragma once

#include <fstream>
#include <string>
#include <utility>
#include <vector>

namespace oocpctest {

inline std::string Unescaped(const std::string& text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\' || i + 1 == text.size()) {
      out += text[i];
      continue;
    }
    switch (text[++i]) {
      case 't':
        out += '\t';
        break;
      case 'n':
        out += '\n';
        break;
      case 'v':
        out += '\v';
        break;
      case 'f':
        out += '\f';
        break;
      case 'r':
        out += '\r';
        break;
      case 's':
        out += ' ';
        break;
      case 'x':
        out += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
        i += 2;
        break;
      default:
        out += text[i];
    }
  }
  return out;
}

/// The rows "left ==> right" of a table in this folder, unescaped; lines that start with ";" are
/// comments.
inline std::vector<std::pair<std::string, std::string>> ReadCaseTable(const std::string& name) {
  std::ifstream file(std::string(TESTS_SOURCE_DIR) + "/OOCPointCloudTarn/query/" + name);
  std::vector<std::pair<std::string, std::string>> rows;
  const std::string arrow = " ==> ";
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line[0] == ';') continue;
    const std::size_t at = line.rfind(arrow);
    if (at == std::string::npos) {
      rows.emplace_back("row without an arrow: " + line, "");
      continue;
    }
    rows.emplace_back(Unescaped(line.substr(0, at)), Unescaped(line.substr(at + arrow.size())));
  }
  return rows;
}

}  // namespace oocpctest
