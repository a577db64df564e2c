/*
 * gamma_peer: the image-tuning side of the gamma exchange, for trying out and
 * testing a running faceDet without the camera's tuning process.
 *
 * It attaches to the daemon's segment (never creating or initialising it: the
 * daemon does that when its frame thread starts), asks for a curve by setting
 * mode 1 with a strength, and takes each answer as the tuning process would:
 * mode back to 0, and isuse 1 after a valid curve, so that the daemon takes
 * the curve's offsets as applied and judges later frames on the histogram
 * mapped back through them. On leaving it sets isuse and mode to 0 (the curve
 * is no longer applied).
 *
 * An answer is recognised by the segment's written flag: the peer clears it
 * under the lock with every change it makes, and the daemon's write sets it.
 */
#include <signal.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "faceDet/gamma_record.h"
#include "dbgout/runtime_env.h"
#include "share_memory/share_memory.h"
#include "tool_cli.h"

#include <nlohmann/json.hpp>

#if FACEDET_HAS_OPENCV
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#endif

static_assert(sizeof(GammaRecord) == kTrackDataBytes, "a gamma record fills the data area");

namespace {

struct Options {
    int every = 0;  // polls between an answer and the next request; 0: ask once
    int strength = 100;
    bool apply = true;
    int answers = 0;       // stop after this many; 0: no limit
    double seconds = 0.0;  // stop after this long; 0: no limit
    int pollMs = 33;       // about one frame of the analysis stream
    std::string csv;
    std::string jsonl;
    std::string png;
};

#if FACEDET_HAS_OPENCV
const char kPngNote[] = "";
#else
const char kPngNote[] = " (not in this build: no OpenCV)";
#endif

// -1 to go on, else the exit status.
int parse_options(int argc, char **argv, Options *o) {
    CLI::App app{
        "Asks a running faceDet for gamma curves through its shared-memory segment\n"
        "(key $FACEDET_SHM_KEY, else 0x1123) and takes each answer into use.",
        "gamma_peer"};
    tool_cli::set_up(app,
                     "gamma_peer [--once | --every N] [--strength S] [--no-apply] [--answers N]\n"
                     "           [--seconds S] [--poll-ms MS] [--csv FILE] [--jsonl FILE] [--png FILE]");
    // --once is the default; given with --every, --every counts.
    app.add_flag_callback(
        "--once", [o] { o->every = 0; }, "ask once (default)");
    app.add_option("--every", o->every, "ask again N polls after each answer")
        ->type_name("N")
        ->check(tool_cli::whole_number(1, 1000000, "a count of polls from 1 to 1000000"));
    app.add_option("--strength", o->strength, "blend strength sent with each request (default 100)")
        ->type_name("S")
        ->check(tool_cli::whole_number(INT32_MIN, INT32_MAX, "a whole number"));
    app.add_flag_callback(
        "--no-apply", [o] { o->apply = false; }, "never report a curve as applied (isuse stays 0)");
    app.add_option("--answers", o->answers, "stop after N answers")
        ->type_name("N")
        ->check(tool_cli::whole_number(1, 1000000, "a count from 1 to 1000000"));
    app.add_option("--seconds", o->seconds,
                   "stop after S seconds (exit status 3 if --answers was not reached)")
        ->type_name("S")
        ->check(tool_cli::positive_number("a positive number"));
    app.add_option("--poll-ms", o->pollMs, "poll period between requests (default 33, one frame)")
        ->type_name("MS")
        ->check(tool_cli::whole_number(1, 60000, "milliseconds from 1 to 60000"));
    app.add_option("--csv", o->csv, "write the last answer (statistics and curve) as name,value lines")
        ->type_name("FILE");
    app.add_option("--jsonl", o->jsonl, "append each answer's statistics and verdict to FILE as a JSON line")
        ->type_name("FILE");
    app.add_option("--png", o->png, std::string("draw the last curve against the identity") + kPngNote)
        ->type_name("FILE");
    if (const int status = tool_cli::parse(app, argc, argv); status >= 0) {
        return status;
    }
#if !FACEDET_HAS_OPENCV
    if (!o->png.empty()) {
        return tool_cli::usage_error(app, "--png needs a build with OpenCV");
    }
#endif
    return -1;
}

double now_seconds() {
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<double>(t.tv_sec) + t.tv_nsec / 1e9;
}

void sleep_ms(int ms) {
    usleep(static_cast<useconds_t>(ms) * 1000);
}

// The segment, once the daemon has made it: it writes the data size when it
// initialises the segment, and the lock right after.
TrackShareMap *wait_for_segment(double deadline) {
    while (tool_cli::stop_requested() == 0 && (deadline == 0.0 || now_seconds() < deadline)) {
        if (shmget(shm_key(), kTrackMapBytes, 0666) >= 0) {
            TrackShareMap *map = static_cast<TrackShareMap *>(creat_track_share_map());
            if (map == nullptr) {
                return nullptr;
            }
            while (map->dataSize != kTrackDataBytes && tool_cli::stop_requested() == 0 &&
                   (deadline == 0.0 || now_seconds() < deadline)) {
                sleep_ms(20);
            }
            sleep_ms(50);  // past the daemon's initialisation of the lock
            return map->dataSize == kTrackDataBytes ? map : nullptr;
        }
        sleep_ms(50);
    }
    return nullptr;
}

void write_csv(const std::string &path, const GammaRecord &r, int answer, int askedIsuse) {
    FILE *f = fopen(path.c_str(), "w");
    if (f == nullptr) {
        fprintf(stderr, "gamma_peer: cannot write %s: %s\n", path.c_str(), strerror(errno));
        return;
    }
    fprintf(f, "name,value\nanswer,%d\nvalid,%d\nmean,%d\nstdDev,%d\np1,%d\np10,%d\np50,%d\np90,%d\np99,%d\n",
            answer, r.valid, r.mean, r.stdDev, r.p1, r.p10, r.p50, r.p90, r.p99);
    fprintf(f, "strength,%d\nisuse,%d\n", r.strength, askedIsuse);
    for (int i = 0; i < kGammaLevels; ++i) {
        fprintf(f, "curve[%d],%d\n", i, r.curve[i]);
    }
    fclose(f);
}

#if FACEDET_HAS_OPENCV
void write_png(const std::string &path, const GammaRecord &r) {
    // Two pixels a level; levels outside 0..255 are drawn at the border.
    const int margin = 24;
    const int side = 2 * 255;
    cv::Mat image(side + 2 * margin + 24, side + 2 * margin, CV_8UC3, cv::Scalar(255, 255, 255));
    auto at = [&](int level, int value) {
        const int v = value < -8 ? -8 : (value > 263 ? 263 : value);
        return cv::Point(margin + 2 * level, margin + side - 2 * v);
    };
    for (int g = 0; g <= 255; g += 32) {
        cv::line(image, at(g, 0), at(g, 255), cv::Scalar(230, 230, 230));
        cv::line(image, at(0, g), at(255, g), cv::Scalar(230, 230, 230));
    }
    cv::rectangle(image, at(0, 255), at(255, 0), cv::Scalar(120, 120, 120));
    cv::line(image, at(0, 0), at(255, 255), cv::Scalar(160, 160, 160), 1, cv::LINE_AA);
    for (int i = 1; i < kGammaLevels; ++i) {
        cv::line(image, at(i - 1, r.curve[i - 1]), at(i, r.curve[i]), cv::Scalar(0, 0, 210), 2, cv::LINE_AA);
    }
    char text[160];
    snprintf(text, sizeof text, "%s  strength %d  mean %d  sd %d  p1 %d p10 %d p50 %d p90 %d p99 %d",
             r.valid == 1 ? "valid" : "not valid", r.strength, r.mean, r.stdDev, r.p1, r.p10, r.p50, r.p90,
             r.p99);
    cv::putText(image, text, cv::Point(margin, side + 2 * margin + 10), cv::FONT_HERSHEY_SIMPLEX, 0.4,
                cv::Scalar(0, 0, 0), 1, cv::LINE_AA);
    if (!cv::imwrite(path, image)) {
        fprintf(stderr, "gamma_peer: cannot write %s\n", path.c_str());
    }
}
#endif

// One line of JSON per answer, for programs (facedet_replay reads it).
void append_json_line(const std::string &path, const GammaRecord &r, int answer, int askedIsuse) {
    const nlohmann::ordered_json line = {
        {"answer", answer}, {"valid", r.valid},       {"mean", r.mean},      {"stdDev", r.stdDev},
        {"p1", r.p1},       {"p10", r.p10},           {"p50", r.p50},        {"p90", r.p90},
        {"p99", r.p99},     {"strength", r.strength}, {"isuse", askedIsuse}, {"accepted", r.valid == 1}};
    FILE *f = fopen(path.c_str(), "a");
    if (f == nullptr) {
        fprintf(stderr, "gamma_peer: cannot write %s: %s\n", path.c_str(), strerror(errno));
        return;
    }
    fprintf(f, "%s\n", line.dump().c_str());
    fclose(f);
}

void report(const GammaRecord &r, int answer, int askedIsuse) {
    printf(
        "answer %d: valid=%d mean=%d stdDev=%d p1=%d p10=%d p50=%d p90=%d p99=%d strength=%d isuse=%d "
        "-> %s\n",
        answer, r.valid, r.mean, r.stdDev, r.p1, r.p10, r.p50, r.p90, r.p99, r.strength, askedIsuse,
        r.valid == 1 ? "curve accepted" : "curve rejected");
}

}  // namespace

int main(int argc, char **argv) {
    Options o;
    if (const int status = parse_options(argc, argv, &o); status >= 0) {
        return status;
    }
    setvbuf(stdout, nullptr, _IOLBF, 0);
    tool_cli::stop_on_signals();

    const double start = now_seconds();
    const double deadline = o.seconds > 0.0 ? start + o.seconds : 0.0;
    TrackShareMap *map = wait_for_segment(deadline);
    if (map == nullptr) {
        fprintf(stderr, "gamma_peer: no segment of key 0x%x from a faceDet\n",
                static_cast<unsigned>(shm_key()));
        return tool_cli::stop_requested() != 0 ? 0 : 1;
    }
    printf("gamma_peer: attached to key 0x%x\n", static_cast<unsigned>(shm_key()));

    int isuse = 0;       // what this peer reports: 1 while it has a curve applied
    int askedIsuse = 0;  // isuse at the time of the pending request
    bool pending = false;
    int asked = 0;
    int answers = 0;
    int pollsSinceAnswer = 0;
    GammaRecord r;
    while (tool_cli::stop_requested() == 0 && (deadline == 0.0 || now_seconds() < deadline)) {
        // The daemon's 3 ms limit; when it kept the lock, the next look tries again.
        if (!shm_track_map_lock(map)) {
            sleep_ms(1);
            continue;
        }
        memcpy(&r, map->data, sizeof r);
        const bool written = map->written == 1;
        bool answered = false;
        if (pending && written) {
            // The answer: take it into use at once, so that the daemon sees
            // mode 0 before it could answer the same request again.
            answered = true;
            pending = false;
            pollsSinceAnswer = 0;
            if (o.apply && r.valid == 1) {
                isuse = 1;
            }
            GammaRecord back = r;
            back.mode = 0;
            back.isuse = isuse;
            memcpy(map->data, &back, sizeof back);
            map->written = 0;
        } else if (!pending && written) {
            // An answer to a request already taken (the daemon read it just
            // before the change): put this peer's fields back.
            r.mode = 0;
            r.isuse = isuse;
            memcpy(map->data, &r, sizeof r);
            map->written = 0;
        } else if (!pending && (asked == 0 || (o.every > 0 && pollsSinceAnswer >= o.every))) {
            r.mode = 1;
            r.strength = o.strength;
            r.isuse = isuse;
            memcpy(map->data, &r, sizeof r);
            map->written = 0;
            pending = true;
            askedIsuse = isuse;
            ++asked;
        }
        shm_track_map_unlock(map);

        if (answered) {
            ++answers;
            report(r, answers, askedIsuse);
            if (!o.jsonl.empty()) {
                append_json_line(o.jsonl, r, answers, askedIsuse);
            }
            if (!o.csv.empty()) {
                write_csv(o.csv, r, answers, askedIsuse);
            }
#if FACEDET_HAS_OPENCV
            if (!o.png.empty()) {
                write_png(o.png, r);
            }
#endif
            if (o.answers > 0 && answers >= o.answers) {
                break;
            }
        }
        // While waiting for an answer the peer looks every millisecond, so
        // that it takes the answer before the daemon's next frame.
        if (pending) {
            sleep_ms(1);
        } else {
            ++pollsSinceAnswer;
            sleep_ms(o.pollMs);
        }
    }

    // Leaving: no curve is applied any more, and nothing is asked.
    for (int tries = 0; tries < 100; ++tries) {
        if (shm_track_map_lock(map)) {
            memcpy(&r, map->data, sizeof r);
            r.mode = 0;
            r.isuse = 0;
            memcpy(map->data, &r, sizeof r);
            map->written = 0;
            shm_track_map_unlock(map);
            break;
        }
        sleep_ms(1);
    }
    shm_track_map_detach();
    printf("gamma_peer: %d answers\n", answers);
    if (o.answers > 0 && answers < o.answers && tool_cli::stop_requested() == 0) {
        return 3;
    }
    return 0;
}
