#include "platform/HomeFolder.hpp"

#include <fmt/format.h>

namespace vorlan {

HomeFolder homeFolderFrom(const char* value) {
  if (value == nullptr || *value == '\0') return {{}, "HOME 환경 변수가 없거나 비어 있어 홈 폴더를 알 수 없습니다."};
  std::error_code ec;
  const auto resolved = std::filesystem::canonical(value, ec);
  if (ec || !std::filesystem::is_directory(resolved, ec))
    return {{}, fmt::format("HOME이 가리키는 곳이 폴더가 아닙니다: {}", value)};
  if (resolved == resolved.root_path())
    return {{}, fmt::format("HOME이 디스크의 맨 위 폴더(/)라서 홈 폴더로 쓸 수 없습니다: {}", value)};
  return {resolved, {}};
}

}  // namespace vorlan
