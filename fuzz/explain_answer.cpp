// The explain service's answer, whatever it sends: entries or nothing, and never a path to
// delete.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "network/Explain.hpp"

namespace {

struct Answer final : vorlan::ExplainTransport {
  std::string body;
  std::optional<std::string> post(const std::string&, const std::string&) override { return body; }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Answer answer;
  answer.body.assign(reinterpret_cast<const char*>(data), size);
  const auto entries = vorlan::Explain::fetch({"Library/Caches/com.example.app", ".cache/tool"},
                                              "https://explain.example.test", answer);
  if (entries)
    for (const auto& [path, entry] : *entries)
      if (!entry.deletePaths.empty()) std::abort();
  return 0;
}
