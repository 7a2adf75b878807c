// What the subcommands call for traffic that leaves the machine: the consent text, the
// anonymous scan report, explanations for the plan and the cleanup events. Each function does
// its own printing, and no network failure ever fails a command: at most one line on stderr.
#pragma once
#include <optional>
#include <string>
#include <vector>

#include "CliSupport.hpp"
#include "cleanup/CleanupExecution.hpp"
#include "cleanup/CleanupPlan.hpp"
#include "cleanup/KnowledgeDictionary.hpp"
#include "scan/ScanRecords.hpp"

namespace vorlan::cli {

// The consent text, on stderr, so that a report on stdout stays clean.
void printConsent();

// `scan --share`: sends the masked scan report when a back-end is configured. With
// `previewOnly` it prints the exact request body on stdout and sends nothing.
void shareScanReport(const DeepScanResult& result, std::optional<double> systemDataGB,
                     std::optional<double> durationS, bool previewOnly, const CliContext& ctx);

// `plan --explain`: asks the explain service about the plan's large unknown rows whose names
// are public identifiers. Prints the exact request body first, then the rows whose words
// changed, on stdout. Returns the rows with their new words; verdicts, ticks and holds never
// change, and on any failure the rows come back as they were.
std::vector<CleanupItem> explainPlan(const std::vector<CleanupItem>& items,
                                     const KnowledgeDictionary& dictionary, const CliContext& ctx);

// `clean --share`: sends each event of the run ("deleted", "purged_immediate", "unchecked")
// whose item list is not empty, when a back-end is configured. One line on stderr at most.
void shareCleanupEvents(const std::vector<CleanupEvent>& events,
                        const KnowledgeDictionary& dictionary, const CliContext& ctx);

}  // namespace vorlan::cli
