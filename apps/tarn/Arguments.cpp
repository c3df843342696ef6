// Checks of what stands on the command line.
#include "apps/tarn/Arguments.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdint>
#include <filesystem>

namespace tarnapp {

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

CLI::Validator EndsIn(const std::string& ending) {
  return {[ending](const std::string& text) {
            std::string found = std::filesystem::path(text).extension().string();
            std::transform(found.begin(), found.end(), found.begin(), [](unsigned char letter) {
              return static_cast<char>(std::tolower(letter));
            });
            return found == ending ? std::string() : "\"" + text + "\" does not end in " + ending;
          },
          ""};
}

}  // namespace tarnapp
