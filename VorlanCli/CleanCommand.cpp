#include "Commands.hpp"

namespace vorlan::cli {

int runClean(const std::vector<std::string>&, const CliContext&) {
  return failure("'clean' 명령은 아직 준비되지 않았습니다.");
}

}  // namespace vorlan::cli
