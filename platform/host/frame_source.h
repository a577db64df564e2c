/*
 * Where the frames of VPE channel 0 come from: a raw NV12 file, a video file
 * (through FFmpeg's libraries, in builds that have them), or (in builds with
 * OpenCV) a still image or a V4L2 device.
 *
 * A source is a clip read front to back by the producer thread only, so
 * implementations are thread-bound and need no locking.
 */
#ifndef FACEDET_HOST_FRAME_SOURCE_H
#define FACEDET_HOST_FRAME_SOURCE_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace host {

class FrameSource {
  public:
    virtual ~FrameSource() = default;

    // Frames per second the clip plays at in realtime pacing.
    virtual double fps() const = 0;

    // A device delivers frames at its own rate: reading blocks until the
    // next one, so the producer must not add its own pacing.
    virtual bool live() const { return false; }

    // Makes the next frame of the clip current. width x height is the size
    // of the port the frame feeds first: raw files have no size of their
    // own. Returns false at the end of the clip or on a read error.
    virtual bool next(int width, int height) = 0;

    // Writes the current frame as NV12 of width x height (even sizes) into
    // dst: width*height luma bytes, then width*height/2 bytes of interleaved
    // U,V.
    virtual void render(int width, int height, uint8_t *dst) = 0;

    // Back to the first frame of the clip, for looping. False if the source
    // cannot restart (a device).
    virtual bool rewind() = 0;

    // Frames of the clip that could not be decoded and were skipped so far.
    virtual long failed_frames() const { return 0; }

    // A recording's frames keep the camera's time: *us is when the camera
    // took the current frame, in microseconds since the recording began.
    // False for every other source.
    virtual bool recorded_time(uint64_t *us) const {
        (void)us;
        return false;
    }
    // A recording's control datagrams that reached the daemon on the camera
    // after the frame before the current one was taken, oldest first.
    virtual const std::vector<std::vector<uint8_t>> &controls_before() const;
};

// Raw files are recognised by the extension .nv12 or .yuv (any case).
bool is_raw_nv12_path(const std::string &path);

// Opens any supported source. On failure returns null with *error saying why
// (without the path, which the caller names).
std::unique_ptr<FrameSource> open_frame_source(const std::string &path, std::string *error);

std::unique_ptr<FrameSource> open_raw_nv12_source(const std::string &path, std::string *error);

// A flight recording (a recording directory, or its file): the frames the
// camera's daemon took, each once, with their times and the control
// datagrams between them.
std::unique_ptr<FrameSource> open_recording_source(const std::string &path, std::string *error);

#if FACEDET_HAS_FFMPEG
std::unique_ptr<FrameSource> open_ffmpeg_source(const std::string &path, std::string *error);
#endif

#if FACEDET_HAS_OPENCV
std::unique_ptr<FrameSource> open_opencv_source(const std::string &path, std::string *error);

// A still image from the bytes of an image file (what open_frame_source does
// after reading the file).
std::unique_ptr<FrameSource> open_image_bytes(const std::vector<uint8_t> &bytes, std::string *error);
#endif

// Nearest-neighbour NV12 scaling, for a raw frame that also feeds a port of
// another size. All sizes even. Chroma pairs are kept together.
void scale_nv12_nearest(const uint8_t *src, int srcWidth, int srcHeight, uint8_t *dst, int dstWidth,
                        int dstHeight);

// An NV12 frame into a port: copied when the sizes match, else scaled as above.
void render_nv12(const uint8_t *src, int srcWidth, int srcHeight, uint8_t *dst, int dstWidth, int dstHeight);

}  // namespace host

#endif
