// The scenarios as scripts: paths of face centres in the 416x234 frame, keyed
// by share of the clip, so that --frames stretches a scenario without
// changing its story.
#include "scenario_scripts.h"

namespace scenario {

// Large single-face interview photos with room around the face.
constexpr char kPersonA[] = "13_Interview_Interview_Sequences_13_778.jpg";
constexpr char kPersonB[] = "13_Interview_Interview_Sequences_13_33.jpg";
constexpr char kPersonC[] = "13_Interview_Interview_Sequences_13_121.jpg";
constexpr char kPersonD[] = "13_Interview_Interview_On_Location_13_852.jpg";

const std::vector<Scenario> &all_scenarios() {
    static const std::vector<Scenario> list = {
        {{"empty", 30, "the background alone, no face"}, {}},
        {{"enter", 90, "one person walks in from the left and stops in the middle"},
         {{kPersonA, 48, {{0.0, -80, 100}, {0.55, 208, 100}, {1.0, 208, 100}}}}},
        {{"walk_across", 100, "one person walks from the left edge to the right edge"},
         {{kPersonA, 48, {{0.0, 40, 100}, {1.0, 376, 100}}}}},
        {{"stop_and_leave", 90, "one person stands right of centre, then walks out to the right"},
         {{kPersonA, 48, {{0.0, 250, 100}, {0.35, 250, 100}, {0.6, 500, 100}, {1.0, 500, 100}}}}},
        {{"two_crossing", 100, "two people cross, the nearer one left to right"},
         {{kPersonA, 50, {{0.0, 50, 108}, {1.0, 366, 108}}},
          {kPersonB, 40, {{0.0, 366, 78}, {1.0, 50, 78}}}}},
        {{"sit_down", 120, "one person walks in from the left and sits down in the middle"},
         {{kPersonA,
           48,
           {{0.0, -80, 90}, {0.45, 200, 90}, {0.55, 200, 90}, {0.7, 200, 140}, {1.0, 200, 140}}}}},
        // The one nearer the centre, whom the camera takes first, is the one who leaves.
        {{"one_leaves", 120, "two people stand, the one right of centre walks out to the right"},
         {{kPersonA, 50, {{0.0, 110, 108}, {1.0, 110, 108}}},
          {kPersonB, 40, {{0.0, 250, 80}, {0.35, 250, 80}, {0.75, 500, 80}, {1.0, 500, 80}}}}},
        // 29 of 90 frames: about a second at the stream's 30 fps, longer than the
        // camera's patience with a frame without faces.
        {{"turn_away", 90, "one person in the middle turns away for a second, then back"},
         {{kPersonA, 48, {{0.0, 208, 100}, {1.0, 208, 100}}, 0.4, 0.73}}},
        {{"at_edge", 90, "one person stands still with the face close to the left edge"},
         {{kPersonA, 48, {{0.0, 32, 100}, {1.0, 32, 100}}}}},
        // The long ones last whole seconds at the camera's pace of about six
        // analysed frames a second, where the rules' frame counts take five
        // times longer than at the stream's 30 fps.
        {{"across_and_back", 360, "one person walks from the left edge to the right edge and back, pausing"},
         {{kPersonA,
           48,
           {{0.0, 40, 100},
            {0.1, 40, 100},
            {0.45, 376, 100},
            {0.55, 376, 100},
            {0.9, 40, 100},
            {1.0, 40, 100}}}}},
        // The one nearest the centre, whom the camera takes, looks at a
        // neighbour for two seconds; later another looks away for one.
        {{"meeting", 900, "four people sit side by side for 30 s, shifting a little, two look away"},
         {{kPersonC, 38, {{0.0, 78, 136}, {0.5, 82, 134}, {1.0, 78, 136}}},
          {kPersonA, 40, {{0.0, 172, 128}, {0.3, 170, 131}, {0.8, 175, 128}, {1.0, 172, 128}}, 0.4, 0.47},
          {kPersonB, 38, {{0.0, 262, 132}, {0.6, 259, 130}, {1.0, 262, 132}}, 0.7, 0.74},
          {kPersonD, 38, {{0.0, 350, 138}, {0.4, 352, 136}, {1.0, 350, 138}}}}},
        {{"stand_up_leave", 360, "one person sits, stands up, then walks out to the right"},
         {{kPersonB,
           44,
           {{0.0, 200, 150},
            {0.25, 200, 150},
            {0.33, 200, 95},
            {0.45, 200, 95},
            {0.7, 500, 95},
            {1.0, 500, 95}}}}},
    };
    return list;
}

}  // namespace scenario
