#include "recorded_run.h"

#include <dirent.h>

#include <sstream>

std::vector<const recording::Record *> RecordedRun::of(recording::Kind kind) const {
    std::vector<const recording::Record *> found;
    for (const recording::Record &r : records) {
        if (r.kind == kind) {
            found.push_back(&r);
        }
    }
    return found;
}

std::vector<std::string> RecordedRun::bytes_of(recording::Kind kind) const {
    std::vector<std::string> texts;
    for (const recording::Record *r : of(kind)) {
        std::string text;
        char two[4];
        for (uint8_t b : r->bytes) {
            snprintf(two, sizeof two, "%02x", b);
            text += (text.empty() ? "" : " ") + std::string(two);
        }
        texts.push_back(text);
    }
    return texts;
}

uint64_t RecordedRun::dropped() const {
    uint64_t n = 0;
    for (const recording::Record *r : of(recording::Kind::Dropped)) {
        n += r->dropped.frames + r->dropped.datagrams;
    }
    return n;
}

RecordedRun read_recorded_run(const std::string &folder) {
    RecordedRun run;
    std::vector<std::string> made;
    if (DIR *dir = opendir(folder.c_str())) {
        while (const dirent *e = readdir(dir)) {
            if (e->d_name[0] != '.') {
                made.push_back(folder + "/" + e->d_name);
            }
        }
        closedir(dir);
    }
    if (made.size() != 1) {
        run.error = std::to_string(made.size()) + " recordings in " + folder;
        return run;
    }
    std::unique_ptr<recording::Reader> reader =
        recording::Reader::open(made[0], recording::kAnalysisFrame, &run.error);
    if (reader) {
        for (recording::Record r; reader->next(&r);) {
            run.records.push_back(r);
        }
        run.summary = reader->summary();
        run.ended = reader->ended();
    }
    return run;
}

std::vector<std::string> sim_bytes(const std::string &simLog, const std::string &event) {
    std::vector<std::string> found;
    std::istringstream in(simLog);
    for (std::string line; std::getline(in, line);) {
        const size_t at = line.find("\"bytes\":\"");
        if (line.find("\"event\":\"" + event + "\"") == std::string::npos || at == std::string::npos ||
            line.find("\"sent\":false") != std::string::npos) {
            continue;
        }
        found.push_back(line.substr(at + 9, line.find('"', at + 9) - at - 9));
    }
    return found;
}

std::vector<std::pair<int, unsigned long long>> frames_taken(const std::string &frameLog) {
    std::vector<std::pair<int, unsigned long long>> taken;
    std::istringstream in(frameLog);
    int index = 0;
    unsigned long long pts = 0;
    char what[16];
    for (std::string line; std::getline(in, line);) {
        if (sscanf(line.c_str(), "%d %llu %15s", &index, &pts, what) == 3 && std::string(what) == "taken") {
            taken.emplace_back(index, pts);
        }
    }
    return taken;
}
