#include "Commands.hpp"

namespace vorlan::cli {

std::vector<std::string> versionNotes(const CliContext&) { return {}; }

}  // namespace vorlan::cli
