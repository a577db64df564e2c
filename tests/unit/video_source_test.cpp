// Videos through FFmpeg's libraries against the pictures the platform made
// before (OpenCV: a full-size BGR picture, area-shrunk, converted back), and
// the videos that go wrong halfway.
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "bad_videos.h"
#include "frame_source.h"
#include "temp_dir.h"
#include "video_decoder.h"

namespace {

constexpr int kWidth = 416;
constexpr int kHeight = 234;
constexpr size_t kNv12Bytes = kWidth * kHeight * 3 / 2;

std::vector<uint8_t> render(host::FrameSource &source) {
    std::vector<uint8_t> picture(kNv12Bytes);
    source.render(kWidth, kHeight, picture.data());
    return picture;
}

double mean_absolute_difference(const std::vector<uint8_t> &a, const std::vector<uint8_t> &b) {
    double sum = 0;
    for (size_t i = 0; i < a.size(); ++i) {
        sum += std::abs(static_cast<int>(a[i]) - static_cast<int>(b[i]));
    }
    return sum / static_cast<double>(a.size());
}

// Every frame of each sample video: the same number of frames, each picture
// within 2 grey levels (mean) of the earlier way's.
TEST(VideoPictures, StayWithinTwoGreyLevelsOfTheEarlierOnes) {
    for (const char *name : {"talking_head_single_person.mp4", "meeting_room_four_seated.mp4"}) {
        SCOPED_TRACE(name);
        const std::string path = std::string(FACEDET_SHARED_DIR) + "/data/videos/" + name;
        std::string error;
        std::unique_ptr<host::FrameSource> now = host::open_ffmpeg_source(path, &error);
        std::unique_ptr<host::FrameSource> before = host::open_opencv_source(path, &error);
        ASSERT_TRUE(now && before) << error;
        EXPECT_NEAR(now->fps(), before->fps(), 0.01);
        int frames = 0;
        double worst = 0;
        for (;;) {
            const bool more = now->next(kWidth, kHeight);
            ASSERT_EQ(more, before->next(kWidth, kHeight)) << "frame " << frames;
            if (!more) {
                break;
            }
            worst = std::max(worst, mean_absolute_difference(render(*now), render(*before)));
            ++frames;
        }
        EXPECT_GT(frames, 30);
        EXPECT_LE(worst, 2.0);
        EXPECT_EQ(now->failed_frames(), 0);
    }
}

// Every frame that decodes is given, at the port's size; the ones that do
// not are counted, and the video's end stays its end.
TEST(BadVideos, GiveTheFramesThatDecodeAndCountTheOthers) {
    TempDir dir;
    const std::string small = dir.file("small.ts"), large = dir.file("large.ts");
    ASSERT_TRUE(make_video("-f lavfi -i testsrc=size=320x240:rate=10 -t 2 -c:v mpeg2video " + small));
    ASSERT_TRUE(make_video("-f lavfi -i testsrc=size=640x360:rate=10 -t 2 -c:v mpeg2video " + large));
    write_file(dir.file("size_change.ts"), read_file(small) + read_file(large));
    ASSERT_TRUE(make_video_with_three_bad_frames(dir.file("corrupt.avi")));
    // Cut in the middle of its second half: it ends early.
    const std::string whole = read_file(large);
    write_file(dir.file("cut.ts"), whole.substr(0, whole.size() * 3 / 4));

    struct Case {
        const char *file;
        int minFrames, maxFrames;
        long failed;
    } cases[] = {// The transport stream's seam may cost the packet across it.
                 {"size_change.ts", 38, 40, 0},
                 {"corrupt.avi", 17, 17, 3},
                 {"cut.ts", 10, 19, 0}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.file);
        std::string error;
        std::unique_ptr<host::FrameSource> source = host::open_ffmpeg_source(dir.file(c.file), &error);
        ASSERT_TRUE(source) << error;
        int frames = 0;
        while (source->next(kWidth, kHeight)) {
            const std::vector<uint8_t> picture = render(*source);
            EXPECT_GT(mean_absolute_difference(picture, std::vector<uint8_t>(kNv12Bytes, 16)), 10.0)
                << "frame " << frames << " is empty";
            ++frames;
        }
        EXPECT_GE(frames, c.minFrames);
        EXPECT_LE(frames, c.maxFrames);
        EXPECT_EQ(source->failed_frames(), c.failed);
        EXPECT_FALSE(source->next(kWidth, kHeight)) << "the end stays the end";
    }

    std::string error;
    write_file(dir.file("text.mp4"), "not a video\n");
    EXPECT_FALSE(host::VideoDecoder::open(dir.file("text.mp4"), &error));
    EXPECT_EQ(error.find('\n'), std::string::npos);
    EXPECT_FALSE(error.empty());
}

}  // namespace
