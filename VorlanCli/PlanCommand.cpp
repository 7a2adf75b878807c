#include "Commands.hpp"

namespace vorlan::cli {

int runPlan(const std::vector<std::string>&, const CliContext&) {
  return failure("'plan' 명령은 아직 준비되지 않았습니다.");
}

}  // namespace vorlan::cli
