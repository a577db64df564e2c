/*
 * facedet_ctl: switches auto framing of a running faceDet by sending the two
 * control bytes to its control socket.
 */
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "control.h"
#include "dbgout/runtime_env.h"
#include "tool_cli.h"

namespace {

bool parse_byte(const char *text, uint8_t *value) {
    errno = 0;
    char *end = nullptr;
    long parsed = strtol(text, &end, 0);
    // A leading 0 is decimal, not octal.
    if (text[0] == '0' && text[1] != 'x' && text[1] != 'X' && text[1] != '\0') {
        parsed = strtol(text, &end, 10);
    }
    if (errno != 0 || end == text || *end != '\0' || parsed < 0 || parsed > 255) {
        return false;
    }
    *value = static_cast<uint8_t>(parsed);
    return true;
}

}  // namespace

int main(int argc, char **argv) {
    std::string runtimeDir = runtime_dir();
    std::vector<std::string> words;
    CLI::App app{"Sends two bytes to faceDet's control socket, as the camera's own processes do.",
                 "facedet_ctl"};
    tool_cli::set_up(app,
                     "facedet_ctl [--runtime-dir DIR] run|stop|off\n"
                     "facedet_ctl [--runtime-dir DIR] BYTE0 BYTE1");
    app.add_option("WORD", words,
                   "run   auto framing on                 (bytes 0x01 0x01)\n"
                   "stop  auto framing stopped, full view (0x01 0x00)\n"
                   "off   auto framing off, view reset    (0x01 0x02)\n"
                   "or two raw bytes, decimal or 0x-hex, 0..255")
        ->type_name("");
    app.add_option("--runtime-dir", runtimeDir,
                   "where faceDet's sockets are (default $FACEDET_RUNTIME_DIR, else /dev)")
        ->type_name("DIR");
    if (const int status = tool_cli::parse(app, argc, argv); status >= 0) {
        return status;
    }

    uint8_t bytes[2] = {0x01, 0x00};
    if (words.size() == 2) {
        for (int i = 0; i < 2; ++i) {
            if (!parse_byte(words[i].c_str(), &bytes[i])) {
                return tool_cli::usage_error(app,
                                             "'" + words[i] + "' is not a byte (0..255, decimal or 0x-hex)");
            }
        }
    } else if (words.empty()) {
        return tool_cli::usage_error(app, "say run, stop, off or two bytes (try --help)");
    } else if (words.size() != 1 || !control_bytes(words[0], bytes)) {
        return tool_cli::usage_error(app, "unknown command '" + words[0] + "' (try --help)");
    }

    std::string error;
    if (!send_control(runtimeDir, bytes, &error)) {
        fprintf(stderr, "facedet_ctl: %s\n", error.c_str());
        return 1;
    }
    printf("sent 0x%02x 0x%02x to %s/sin_addr.socket\n", bytes[0], bytes[1], runtimeDir.c_str());
    return 0;
}
