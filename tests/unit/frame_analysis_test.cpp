// What the frame loop does with a frame before target selection: its number,
// the luma histogram and the box filter that turns detections into framing input.
#include <cstdint>
#include <numeric>
#include <vector>

#include <gtest/gtest.h>

#include "faceDet/box_filter.h"
#include "faceDet/get_stream_thread.h"
#include "faceDet/luma_histogram.h"
#include "output_capture.h"

TEST(FrameCounter, CountsUpAndWrapsAboveTheWarmUp) {
    EXPECT_EQ((std::vector<int>{next_frame_number(0), next_frame_number(9), next_frame_number(9999999),
                                next_frame_number(10000000)}),
              (std::vector<int>{1, 10, 10000000, 10}));  // wraps to just past the warm-up
}

TEST(LumaHistogram, CountsEveryLumaByteOnce) {
    std::vector<uint8_t> luma(416 * 234);
    for (size_t i = 0; i < luma.size(); ++i) {
        luma[i] = static_cast<uint8_t>(i % 7 == 0 ? 255 : i % 3);
    }
    float hist[256];
    std::fill(hist, hist + 256, 123.0f);  // cleared first
    build_luma_histogram(luma.data(), 416, 234, hist);
    EXPECT_EQ(std::accumulate(hist, hist + 256, 0.0), 97344.0);
    EXPECT_EQ(hist[255], 13907.0f);  // every 7th of 97344 bytes, counted from 0
    EXPECT_EQ(hist[0], 27812.0f);    // multiples of 3 that are not of 7
}

TEST(BoxFilter, KeepsScoredBoxesOfSixteenPixelsClampedAndScaled) {
    struct Case {
        FaceResult face;
        bool kept;
        Rect_t frame, output;
    } cases[] = {
        // 0.3f widened to double is just above 0.3: the float threshold itself passes.
        {{10, 10, 60, 60, 0.3f}, true, {10, 10, 50, 50}, {46, 46, 230, 230}},
        {{10, 10, 60, 60, 0.29999998f}, false, {}, {}},
        {{0, 0, 15, 40, 0.9f}, false, {}, {}},
        {{0, 0, 40, 15, 0.9f}, false, {}, {}},
        {{0, 0, 16, 16, 0.9f}, true, {0, 0, 16, 16}, {0, 0, 73, 73}},
        // Sizes come from the unclamped corners; a corner past the last column becomes the frame's width.
        {{-10, -5, 100, 60, 0.9f}, true, {0, 0, 110, 65}, {0, 0, 507, 300}},
        {{416, 234, 440, 260, 0.9f}, true, {416, 234, 24, 26}, {1920, 1080, 110, 120}},
        {{-20, -20, 500, 300, 0.9f}, true, {0, 0, 416, 234}, {0, 0, 1920, 1080}},
        // Scaling truncates toward zero: 1 x 1920 / 416 = 4.6, 20 x 1920 / 416 = 92.3.
        {{1, 1, 21, 21, 0.9f}, true, {1, 1, 20, 20}, {4, 4, 92, 92}},
        {{0, 117, 416, 234, 0.9f}, true, {0, 117, 416, 117}, {0, 540, 1920, 540}},
    };
    for (const Case &c : cases) {
        std::vector<Rect_t> frame, output;
        double scores[kMaxDetections];
        OutputCapture capture;
        filter_face_boxes({c.face}, frame, output, scores);
        const std::string log = capture.finish();
        ASSERT_EQ(frame.size(), c.kept ? 1u : 0u) << c.face.x1 << " " << c.face.score;
        if (c.kept) {
            EXPECT_EQ(frame[0], c.frame);
            EXPECT_EQ(output[0], c.output);
        }
    }
}
