// What the frame loop does with a frame before target selection: the luma
// histogram and the box filter that turns detections into framing input.
#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

#include "faceDet/box_filter.h"
#include "faceDet/luma_histogram.h"
#include "output_capture.h"

namespace {

FaceResult face(int32_t x1, int32_t y1, int32_t x2, int32_t y2, float score) {
    return {x1, y1, x2, y2, score};
}

struct Filtered {
    std::vector<Rect_t> frame;
    std::vector<Rect_t> output;
    double scores[kMaxDetections];
    std::string log;
};

Filtered run_filter(const std::vector<FaceResult> &faces, double fill = -1.0) {
    Filtered f;
    for (double &s : f.scores) {
        s = fill;
    }
    OutputCapture capture;
    filter_face_boxes(faces, f.frame, f.output, f.scores);
    f.log = capture.finish();
    return f;
}

}  // namespace

TEST(LumaHistogram, CountsEveryLumaByteOnce) {
    std::vector<uint8_t> luma(416 * 234);
    for (size_t i = 0; i < luma.size(); ++i) {
        luma[i] = static_cast<uint8_t>(i % 7 == 0 ? 255 : i % 3);
    }
    float hist[256];
    for (float &h : hist) {
        h = 123.0f;  // cleared first
    }
    build_luma_histogram(luma.data(), 416, 234, hist);
    double total = 0;
    for (float h : hist) {
        total += h;
    }
    EXPECT_EQ(total, 97344.0);
    EXPECT_EQ(hist[255], 13907.0f);  // every 7th of 97344 bytes, counted from 0
    EXPECT_EQ(hist[200], 0.0f);
}

TEST(BoxFilter, ScoreMustBeStrictlyAbovePointThree) {
    Filtered f = run_filter({face(10, 10, 60, 60, 0.3f), face(10, 10, 60, 60, 0.30001f)});
    // 0.3f widened to double is 0.30000001..., above 0.3: the float threshold
    // value itself passes, as the comparison is made in double.
    EXPECT_EQ(f.frame.size(), 2u);
    Filtered exact = run_filter({face(10, 10, 60, 60, 0.29999998f)});
    EXPECT_TRUE(exact.frame.empty());
}

TEST(BoxFilter, SixteenPixelsIsTheSmallestSide) {
    Filtered f = run_filter({face(0, 0, 15, 40, 0.9f), face(0, 0, 40, 15, 0.9f), face(0, 0, 16, 16, 0.9f)});
    ASSERT_EQ(f.frame.size(), 1u);
    EXPECT_EQ(f.frame[0], (Rect_t{0, 0, 16, 16}));
}

TEST(BoxFilter, SizesComeFromTheUnclampedCorners) {
    Filtered f = run_filter({face(-10, -5, 100, 60, 0.9f)});
    ASSERT_EQ(f.frame.size(), 1u);
    EXPECT_EQ(f.frame[0], (Rect_t{0, 0, 110, 65}));
    EXPECT_NE(f.log.find("face box (x, y, w, h) = (0, 0, 110, 65), score = 0.9"), std::string::npos) << f.log;
}

TEST(BoxFilter, ClampsCornersAndSizesToTheFrame) {
    Filtered f = run_filter({face(416, 234, 440, 260, 0.9f), face(-20, -20, 500, 300, 0.9f)});
    ASSERT_EQ(f.frame.size(), 2u);
    EXPECT_EQ(f.frame[0], (Rect_t{416, 234, 24, 26}));  // above the last column: the frame's width
    EXPECT_EQ(f.frame[1], (Rect_t{0, 0, 416, 234}));
}

TEST(BoxFilter, ScalesToTheOutputSpaceTruncatingTowardZero) {
    Filtered f = run_filter({face(0, 117, 416, 234, 0.9f), face(1, 1, 21, 21, 0.9f)});
    ASSERT_EQ(f.output.size(), 2u);
    EXPECT_EQ(f.output[0], (Rect_t{0, 540, 1920, 540}));
    // 1 * 1920 / 416 = 4.6, 1 * 1080 / 234 = 4.6, 20 * 1920 / 416 = 92.3, 20 * 1080 / 234 = 92.3
    EXPECT_EQ(f.output[1], (Rect_t{4, 4, 92, 92}));
    EXPECT_EQ(scale_to_output(415, 1920, 416), 1915);
    EXPECT_EQ(scale_to_output(233, 1080, 234), 1075);
}

TEST(BoxFilter, ScoresGoToTheDetectorIndexAndSkippedOnesKeepTheirValue) {
    Filtered f =
        run_filter({face(0, 0, 40, 40, 0.9f), face(0, 0, 5, 5, 0.8f), face(50, 50, 90, 90, 0.7f)}, 0.25);
    ASSERT_EQ(f.frame.size(), 2u);
    EXPECT_DOUBLE_EQ(f.scores[0], static_cast<double>(0.9f));
    EXPECT_EQ(f.scores[1], 0.25);  // too small: the older value stays
    EXPECT_DOUBLE_EQ(f.scores[2], static_cast<double>(0.7f));
    EXPECT_EQ(f.scores[3], 0.25);
}

TEST(BoxFilter, OnlyTheTenBestDetectionsAreLookedAt) {
    std::vector<FaceResult> crowd;
    for (int i = 0; i < 14; ++i) {
        crowd.push_back(face(i * 25, 10, i * 25 + 20, 30, 0.99f - 0.01f * i));
    }
    Filtered f = run_filter(crowd, 0.0);
    EXPECT_EQ(f.frame.size(), kMaxDetections);
    EXPECT_EQ(f.frame.back().x, 225);
    EXPECT_EQ(f.output.size(), kMaxDetections);
}

TEST(BoxFilter, ListsAreReusedFromFrameToFrame) {
    std::vector<Rect_t> frame, output;
    frame.reserve(kMaxDetections);
    output.reserve(kMaxDetections);
    double scores[kMaxDetections] = {};
    const Rect_t *storage = frame.data();
    OutputCapture quiet;
    filter_face_boxes({face(0, 0, 40, 40, 0.9f)}, frame, output, scores);
    filter_face_boxes({face(0, 0, 50, 50, 0.9f), face(60, 0, 100, 40, 0.9f)}, frame, output, scores);
    quiet.finish();
    EXPECT_EQ(frame.size(), 2u);
    EXPECT_EQ(frame.data(), storage);
}
