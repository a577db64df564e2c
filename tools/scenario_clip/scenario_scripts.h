/*
 * The scenarios' scripts: who is in each clip, where their face is along the
 * clip and when they look away. Private to the scenario_clip library, which
 * renders them (scenario_clip.cpp).
 */
#ifndef FACEDET_SCENARIO_SCRIPTS_H
#define FACEDET_SCENARIO_SCRIPTS_H

#include <vector>

#include "scenario_clip.h"

namespace scenario {

struct Key {
    double at;      // share of the clip, 0..1
    double cx, cy;  // face centre in frame pixels; outside the frame is allowed
};

struct Actor {
    const char *image;  // photo with exactly one, clear, frontal annotated face
    int faceWidth;      // face width in the 416x234 frame
    std::vector<Key> path;
    // Shares of the clip during which the person looks away: the back of
    // the head faces the camera and the face is in no truth row.
    double awayFrom = 2.0, awayTo = 2.0;
};

struct Scenario {
    ScenarioInfo info;
    // Drawn back to front: actor 0 is nearest the camera and hides the others.
    std::vector<Actor> cast;
};

// Every scenario, in the order the tool's usage lists them.
const std::vector<Scenario> &all_scenarios();

}  // namespace scenario

#endif
