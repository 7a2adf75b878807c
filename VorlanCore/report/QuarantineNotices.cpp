#include "report/QuarantineNotices.hpp"

#include <fmt/format.h>

namespace vorlan::QuarantineNotices {

std::string partialRestore(size_t restored, size_t failed) {
  return fmt::format("{}개 중 {}개를 되돌렸습니다 — 나머지는 같은 위치에 새 파일이 생겨 보관함에 남아 있습니다",
                     restored + failed, restored);
}

}  // namespace vorlan::QuarantineNotices
