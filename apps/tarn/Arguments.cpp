// Checks of what stands on the command line.
#include "apps/tarn/Arguments.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdint>
#include <filesystem>

namespace tarnapp {

CLI::Validator IsNotEmpty() {
  return {[](const std::string& text) {
            return text.empty() ? std::string("the text is empty") : std::string();
          },
          ""};
}

CLI::Validator IsNamed() {
  return {[](const std::string& text) {
            return text.empty() ? std::string("the name is empty") : std::string();
          },
          ""};
}

CLI::Validator IsWholeNumber() {
  return {[](const std::string& text) {
            std::uint64_t number = 0;
            const char* end = text.data() + text.size();
            const auto [stop, error] = std::from_chars(text.data(), end, number);
            return error == std::errc() && stop == end
                       ? std::string()
                       : "\"" + text + "\" is not a whole number from 0 on";
          },
          ""};
}

bool ParseSize(std::string_view text, std::uint64_t& bytes) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, bytes);
  if (error != std::errc() || bytes == 0 || end - stop > 1) return false;
  if (stop == end) return true;
  const std::string_view units = "KMGT";
  const auto unit = units.find(static_cast<char>(std::toupper(static_cast<unsigned char>(*stop))));
  if (unit == std::string_view::npos) return false;
  const auto shift = static_cast<unsigned>(10 * (unit + 1));
  if (bytes > ~std::uint64_t{0} >> shift) return false;
  bytes <<= shift;
  return true;
}

CLI::Validator IsSize() {
  return {[](const std::string& text) {
            std::uint64_t bytes = 0;
            return ParseSize(text, bytes)
                       ? std::string()
                       : "\"" + text + "\" is no number of bytes such as 512M or 4G";
          },
          ""};
}

CLI::Validator EndsIn(const std::vector<std::string>& endings) {
  return {[endings](const std::string& text) {
            std::string found = std::filesystem::path(text).extension().string();
            std::transform(found.begin(), found.end(), found.begin(), [](unsigned char letter) {
              return static_cast<char>(std::tolower(letter));
            });
            std::string wanted;
            for (const std::string& ending : endings) {
              if (found == ending) return std::string();
              wanted.append(wanted.empty() ? "" : " or ").append(ending);
            }
            return "\"" + text + "\" does not end in " + wanted;
          },
          ""};
}

}  // namespace tarnapp
