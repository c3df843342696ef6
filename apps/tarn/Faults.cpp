// How the program tells what is wrong with a repository.
#include "apps/tarn/Faults.h"

#include <cstdio>
#include <string>

namespace tarnapp {

namespace {

std::string CodeText(HRESULT code) {
  const oocpc::ResultCodeInfo* info = oocpc::FindResultCode(code);
  return info == nullptr ? std::to_string(code) : info->name;
}

}  // namespace

void PrintFaultLines(std::span<const tarnhost::Fault> faults) {
  for (const tarnhost::Fault& fault : faults) {
    std::fprintf(stderr, "%s, record %llu, offset %llu: %s (%s)\n", fault.stream.c_str(),
                 static_cast<unsigned long long>(fault.record),
                 static_cast<unsigned long long>(fault.offsetBytes), fault.what.c_str(),
                 CodeText(fault.code).c_str());
  }
}

nlohmann::json FaultsJson(std::span<const tarnhost::Fault> faults) {
  nlohmann::json array = nlohmann::json::array();
  for (const tarnhost::Fault& fault : faults) {
    array.push_back({{"code", CodeText(fault.code)},
                     {"stream", fault.stream},
                     {"record", fault.record},
                     {"offset_bytes", fault.offsetBytes},
                     {"what", fault.what}});
  }
  return array;
}

}  // namespace tarnapp
