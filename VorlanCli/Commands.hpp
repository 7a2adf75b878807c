// The subcommands of `vorlan`. Each takes its own arguments (without the subcommand's name)
// and returns the process exit status.
#pragma once
#include <string>
#include <vector>

#include "CliSupport.hpp"

namespace vorlan::cli {

int runScan(const std::vector<std::string>& args, const CliContext& ctx);
int runPlan(const std::vector<std::string>& args, const CliContext& ctx);
int runClean(const std::vector<std::string>& args, const CliContext& ctx);
int runQuarantine(const std::vector<std::string>& args, const CliContext& ctx);

// Extra lines for `vorlan --version` (a newer published version); empty when none.
std::vector<std::string> versionNotes(const CliContext& ctx);

}  // namespace vorlan::cli
