// The tools' command lines, parsed by CLI11 with the same conventions in every
// tool: --help prints the usage on stdout and exits 0; an unknown option, a
// missing or bad value gives one line on stderr, "TOOL: what is wrong", and
// exit status 2. When an option is given twice the last one counts.
#ifndef FACEDET_TOOLS_TOOL_CLI_H
#define FACEDET_TOOLS_TOOL_CLI_H

#include <csignal>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace tool_cli {

// Sets the conventions on `app` (made as CLI::App{description, name}).
// `usage` holds the synopsis lines without "usage: ", one per line; the
// help shows them, then the description, then the arguments.
void set_up(CLI::App &app, const std::string &usage);

// Parses the command line: -1 when the tool goes on, else its exit status
// (0 after --help, 2 after a usage error, already reported).
int parse(CLI::App &app, int argc, char **argv);

// Reports a usage error found after parsing ("TOOL: message"); returns 2.
int usage_error(const CLI::App &app, const std::string &message);

// SIGINT and SIGTERM set the flag stop_requested() gives. Without
// SA_RESTART, so a blocking poll, read or sleep returns at once with EINTR
// and the tool can stop.
void stop_on_signals();
// Non-zero once SIGINT or SIGTERM came.
const volatile sig_atomic_t &stop_requested();

// Values checked before they are converted, each refused with
// "--OPTION: wants WHAT, not 'VALUE'".
// A finite number above 0, and at most `max` when `max` is above 0.
CLI::Validator positive_number(const std::string &what, double max = 0);
// A whole decimal number from `low` to `high` (a leading 0 is not octal).
CLI::Validator whole_number(long low, long high, const std::string &what);
// One of `words`.
CLI::Validator one_of(const std::vector<std::string> &words);

}  // namespace tool_cli

#endif
