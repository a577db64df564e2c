// Videos that go wrong halfway, made with the ffmpeg program (which a test
// machine has beside FFmpeg's libraries).
#ifndef FACEDET_TEST_BAD_VIDEOS_H
#define FACEDET_TEST_BAD_VIDEOS_H

#include <string>

// Makes a video with the ffmpeg program: "ffmpeg -y ARGS". False when it failed.
bool make_video(const std::string &args);

// Twenty MJPEG frames of 320x240 at 10 fps in an AVI, of which the sixth to
// the eighth are overwritten whole: three frames without a picture. False
// when it could not be made.
bool make_video_with_three_bad_frames(const std::string &path);

#endif
