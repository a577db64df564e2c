#include "tool_cli.h"

#include <signal.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace tool_cli {

namespace {

// The help of every tool: the synopsis, what the tool does, its arguments.
class ToolFormatter : public CLI::Formatter {
  public:
    explicit ToolFormatter(const std::string &usage) {
        column_width(26);
        std::string prefix = "usage: ";
        for (size_t at = 0; at < usage.size();) {
            const size_t end = std::min(usage.find('\n', at), usage.size());
            usage_ += prefix + usage.substr(at, end - at) + "\n";
            prefix = "       ";
            at = end + 1;
        }
    }

    std::string make_help(const CLI::App *app, std::string, CLI::AppFormatMode mode) const override {
        std::string description = app->get_description();
        if (!description.empty() && description.back() != '\n') {
            description += '\n';
        }
        return usage_ + description + make_positionals(app) + make_groups(app, mode) + make_footer(app);
    }

  private:
    std::string usage_;
};

std::string refusal(const std::string &what, const std::string &text) {
    return "wants " + what + ", not '" + text + "'";
}

}  // namespace

void set_up(CLI::App &app, const std::string &usage) {
    app.formatter(std::make_shared<ToolFormatter>(usage));
    app.set_help_flag("-h,--help", "print this help and exit");
    app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
}

int parse(CLI::App &app, int argc, char **argv) {
    try {
        app.parse(argc, argv);
        return -1;
    } catch (const CLI::CallForHelp &) {
        fputs(app.help().c_str(), stdout);
        return 0;
    } catch (const CLI::ValidationError &e) {
        return usage_error(app, e.what());  // says what the value should be
    } catch (const CLI::ParseError &e) {
        std::string message = e.what();
        for (char &c : message) {
            if (c == '\n') {
                c = ' ';  // one line, whatever the library says
            }
        }
        return usage_error(app, message + " (try --help)");
    }
}

int usage_error(const CLI::App &app, const std::string &message) {
    fprintf(stderr, "%s: %s\n", app.get_name().c_str(), message.c_str());
    return 2;
}

CLI::Validator positive_number(const std::string &what, double max) {
    return CLI::Validator(
        [what, max](std::string &text) {
            errno = 0;
            char *end = nullptr;
            const double value = std::strtod(text.c_str(), &end);
            if (errno != 0 || end == text.c_str() || *end != '\0' || !std::isfinite(value) || !(value > 0) ||
                (max > 0 && value > max)) {
                return refusal(what, text);
            }
            char exact[32];
            snprintf(exact, sizeof exact, "%.17g", value);  // what the library converts again
            text = exact;
            return std::string();
        },
        "");  // no description: the help names the value, the refusal says what it wants
}

CLI::Validator whole_number(long low, long high, const std::string &what) {
    return CLI::Validator(
        [low, high, what](std::string &text) {
            errno = 0;
            char *end = nullptr;
            const long value = std::strtol(text.c_str(), &end, 10);
            if (errno != 0 || end == text.c_str() || *end != '\0' || value < low || value > high) {
                return refusal(what, text);
            }
            text = std::to_string(value);
            return std::string();
        },
        "");
}

CLI::Validator one_of(const std::vector<std::string> &words) {
    std::string what;
    for (size_t i = 0; i < words.size(); ++i) {
        what += (i == 0 ? "" : i + 1 == words.size() ? " or " : ", ") + words[i];
    }
    return CLI::Validator(
        [words, what](std::string &text) {
            for (const std::string &word : words) {
                if (text == word) {
                    return std::string();
                }
            }
            return refusal(what, text);
        },
        "");
}

namespace {

volatile sig_atomic_t s_stopRequested = 0;

void request_stop(int) {
    s_stopRequested = 1;
}

}  // namespace

const volatile sig_atomic_t &stop_requested() {
    return s_stopRequested;
}

void stop_on_signals() {
    struct sigaction action {};
    action.sa_handler = request_stop;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

}  // namespace tool_cli
