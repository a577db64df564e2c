#include "framing_score.h"

#include <algorithm>
#include <cmath>
#include <map>

namespace replay {
namespace {

constexpr double kFullWidth = 1920.0, kFullHeight = 1080.0;

struct RectD {
    double x = 0, y = 0, w = 0, h = 0;
    double cx() const { return x + w / 2; }
    double cy() const { return y + h / 2; }
    bool contains(const RectD &r) const {
        return r.x >= x && r.y >= y && r.x + r.w <= x + w && r.y + r.h <= y + h;
    }
};

RectD to_full(const Box &b) {
    return {b.x * kFullWidth / kFrameWidth, b.y * kFullHeight / kFrameHeight, b.w * kFullWidth / kFrameWidth,
            b.h * kFullHeight / kFrameHeight};
}

RectD view_of(double pan, double tilt, double width, double height) {
    return {kFullWidth / 2 + pan - width / 2, kFullHeight / 2 - tilt - height / 2, width, height};
}

RectD move_view(const ScoreMove &m) {
    const double w = std::clamp(static_cast<double>(m.zoom), 192.0, kFullWidth);
    return view_of(m.pan, m.tilt, w, w * 9 / 16);
}

int sign(double v) {
    return (v > 0) - (v < 0);
}

std::optional<double> share(int part, int whole) {
    return whole > 0 ? std::optional<double>(static_cast<double>(part) / whole) : std::nullopt;
}

std::optional<double> median_of(std::vector<double> v) {
    if (v.empty()) {
        return std::nullopt;
    }
    return spread_of(std::move(v)).median;
}

// The followed true face: inside the daemon's person nearest its centre, else nearest the view's centre.
const TruthFace *followed(const std::vector<const TruthFace *> &faces, const ScoreFrame &f,
                          const RectD &view) {
    const TruthFace *best = nullptr;
    double bestDistance = 0;
    if (f.hasPerson) {
        const RectD person{static_cast<double>(f.person.x), static_cast<double>(f.person.y),
                           static_cast<double>(f.person.w), static_cast<double>(f.person.h)};
        for (const TruthFace *t : faces) {
            const RectD r = to_full(t->box);
            const bool inside = r.cx() >= person.x && r.cx() <= person.x + person.w && r.cy() >= person.y &&
                                r.cy() <= person.y + person.h;
            const double d = std::fabs(r.cx() - person.cx());
            if (inside && (!best || d < bestDistance)) {
                best = t;
                bestDistance = d;
            }
        }
    }
    for (const TruthFace *t : best ? std::vector<const TruthFace *>{} : faces) {
        const RectD r = to_full(t->box);
        const double d = std::hypot(r.cx() - view.cx(), r.cy() - view.cy());
        if (!best || d < bestDistance) {
            best = t;
            bestDistance = d;
        }
    }
    return best;
}

}  // namespace

FramingScore score_framing(const Truth &truth, const std::vector<ScoreFrame> &frames,
                           const std::vector<ScoreMove> &moves, long sourceFrames) {
    FramingScore s;
    int inView = 0, inThird = 0, maxPeople = 0, targetChanges = 0;
    std::vector<double> offsets, heights, entryDelays, exitDelays;
    std::map<int, int64_t> waitingEntries;  // person -> when they entered
    std::optional<int64_t> waitingExit;
    std::vector<const TruthFace *> present, previous;
    std::optional<int> lastFollowed;
    int64_t firstT = 0, lastT = 0;
    size_t nextMove = 0;
    int movesCounted = 0, reversals = 0;
    ScoreMove lastTarget;  // the full view the camera starts in
    int lastPanSign = 0, lastZoomSign = 0;

    // Moves up to time `until` are judged against the faces of the last scored frame.
    auto take_moves = [&](int64_t until) {
        for (; nextMove < moves.size() && moves[nextMove].tUs < until; ++nextMove) {
            const ScoreMove &m = moves[nextMove];
            if (s.framesScored == 0) {
                lastTarget = m;  // before the labels: only where the camera was sent
                continue;
            }
            const int panSign = sign(m.pan - lastTarget.pan), zoomSign = sign(m.zoom - lastTarget.zoom);
            // A move sent where the camera already goes (a repeated full view) does not count.
            if (panSign || zoomSign || m.tilt != lastTarget.tilt) {
                reversals += movesCounted > 0 && ((panSign && panSign == -lastPanSign) ||
                                                  (zoomSign && zoomSign == -lastZoomSign));
                ++movesCounted;
                lastPanSign = panSign;
                lastZoomSign = zoomSign;
                lastTarget = m;
            }
            if (m.fullView) {
                if (waitingExit) {
                    exitDelays.push_back(static_cast<double>(m.tUs - *waitingExit) / 1e6);
                    waitingExit.reset();
                }
                continue;
            }
            const RectD target = move_view(m);
            for (const TruthFace *t : present) {
                auto it = waitingEntries.find(t->person);
                if (it != waitingEntries.end() && target.contains(to_full(t->box))) {
                    entryDelays.push_back(static_cast<double>(m.tUs - it->second) / 1e6);
                    waitingEntries.erase(it);
                }
            }
        }
    };

    for (const ScoreFrame &f : frames) {
        const long label = sourceFrames > 0 ? f.sourceIndex % sourceFrames : f.sourceIndex;
        if (!truth.labelled(label)) {
            continue;
        }
        take_moves(f.tUs);
        previous.swap(present);
        present.clear();
        auto first = std::lower_bound(truth.faces.begin(), truth.faces.end(), label,
                                      [](const TruthFace &t, long frame) { return t.frame < frame; });
        for (auto it = first; it != truth.faces.end() && it->frame == label; ++it) {
            present.push_back(&*it);
        }
        if (s.framesScored == 0) {
            firstT = f.tUs;
        }
        lastT = f.tUs;
        ++s.framesScored;
        maxPeople = std::max(maxPeople, static_cast<int>(present.size()));

        for (const TruthFace *t : present) {
            const bool wasThere = std::any_of(previous.begin(), previous.end(),
                                              [&](const TruthFace *p) { return p->person == t->person; });
            if (!wasThere) {
                waitingEntries[t->person] = f.tUs;
            }
        }
        for (auto it = waitingEntries.begin(); it != waitingEntries.end();) {
            const bool here = std::any_of(present.begin(), present.end(),
                                          [&](const TruthFace *p) { return p->person == it->first; });
            it = here ? std::next(it) : waitingEntries.erase(it);
        }
        if (present.empty() && !previous.empty()) {
            waitingExit = f.tUs;
        } else if (!present.empty()) {
            waitingExit.reset();
        }

        const RectD view = view_of(f.view.pan, f.view.tilt, f.view.width, f.view.height);
        const TruthFace *t = followed(present, f, view);
        s.followedTimes.push_back(f.tUs);
        s.followedFaces.push_back(t ? std::optional<Box>(t->box) : std::nullopt);
        if (!t) {
            continue;
        }
        ++s.framesWithPerson;
        const RectD face = to_full(t->box);
        const bool whole = view.contains(face);
        inView += whole;
        inThird += whole && face.cx() >= view.x + view.w / 3 && face.cx() <= view.x + view.w * 2 / 3;
        offsets.push_back(std::hypot(face.cx() - view.cx(), face.cy() - view.cy()) / view.w);
        heights.push_back(face.h / view.h);
        targetChanges += lastFollowed && *lastFollowed != t->person;
        lastFollowed = t->person;
    }
    take_moves(lastT + 1);

    s.faceInView = share(inView, s.framesWithPerson);
    s.faceInCentreThird = share(inThird, s.framesWithPerson);
    if (!offsets.empty()) {
        const Spread o = spread_of(offsets), h = spread_of(heights);
        s.centreOffsetMedian = o.median;
        s.centreOffsetP95 = o.p95;
        s.faceHeightMedian = h.median;
        s.faceHeightP95 = h.p95;
    }
    const double minutes = static_cast<double>(lastT - firstT) / 60e6;
    if (minutes > 0) {
        s.movesPerMinute = movesCounted / minutes;
        if (maxPeople >= 2) {
            s.targetChangesPerMinute = targetChanges / minutes;
        }
    }
    s.reversalShare = share(reversals, movesCounted - 1);
    s.entryToFrameS = median_of(entryDelays);
    s.exitToFullViewS = median_of(exitDelays);
    return s;
}

void score_inputs(const DaemonLog &daemon, const std::vector<FrameLogEntry> &frameLog, const SimLog &sim,
                  std::vector<ScoreFrame> *frames, std::vector<ScoreMove> *moves) {
    // Every delivered frame is one the viewer sees, the ones the daemon
    // dropped too; over those it still follows the person it chose last.
    size_t k = 0;
    bool hasPerson = false;
    Box person;
    for (const FrameLogEntry &e : frameLog) {
        ScoreFrame f;
        f.sourceIndex = static_cast<long>(e.sourceIndex);
        f.tUs = static_cast<int64_t>(e.ptsUs);
        f.view = sim_state_at(sim.states, f.tUs);
        if (e.taken && k < daemon.frames.size()) {
            const TakenFrame &d = daemon.frames[k++];
            hasPerson = d.hasPerson && d.faceNum > 0;
            person = d.person;
            if (d.moved || d.fullViewReset) {
                moves->push_back(d.moved ? ScoreMove{f.tUs, false, d.pan, d.tilt, d.zoom}
                                         : ScoreMove{f.tUs, true, 0, 0, 1920});
            }
        }
        f.hasPerson = hasPerson;
        f.person = person;
        frames->push_back(f);
    }
}

}  // namespace replay
