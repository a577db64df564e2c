/*
 * The frame tap: the newest frame of VPE channel 0, published in a small
 * shared file for watchers outside the daemon (facedet_live shows it), so
 * that they see exactly the pictures the daemon is given, from any source,
 * a webcam included, which only one process can read.
 *
 * FACEDET_FRAME_TAP=FILE. The file is a header and one NV12 picture, written
 * in place through a shared mapping by the producer each time it queues a
 * frame. A sequence count guards it: odd while the picture is being written,
 * so a reader copies, then checks that the count is even and unchanged.
 * Readers never block the writer.
 */
#ifndef FACEDET_HOST_FRAME_TAP_H
#define FACEDET_HOST_FRAME_TAP_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace host {

constexpr uint32_t kFrameTapMagic = 0x50544446;  // "FDTP"
constexpr uint32_t kFrameTapVersion = 1;

struct FrameTapHeader {
    uint32_t magic;
    uint32_t version;
    // These three are accessed atomically: the sequence is odd while a picture
    // is being written.
    uint64_t sequence;
    uint64_t sourceIndex;  // the frame's index in the source (counting across loops)
    uint64_t ptsUs;        // its time stamp, as in the frame log
    uint32_t width;
    uint32_t height;  // the picture: width x height luma bytes, then width x height / 2 of U,V
    uint8_t reserved[24];
};
static_assert(sizeof(FrameTapHeader) == 64, "the tap's header is 64 bytes");

// The producer's side. Thread-bound to the producer.
class FrameTapWriter {
  public:
    FrameTapWriter() = default;
    ~FrameTapWriter();
    FrameTapWriter(const FrameTapWriter &) = delete;
    FrameTapWriter &operator=(const FrameTapWriter &) = delete;

    // Remembers where to publish; the file is made at the first frame, sized
    // for its picture. False with *error when `path` cannot be written.
    bool open(const std::string &path, std::string *error);
    // Publishes one NV12 picture; a picture of another size than the first
    // is skipped (the tap keeps the port's size).
    void publish(uint64_t sourceIndex, uint64_t ptsUs, int width, int height, const uint8_t *nv12);
    void close();

  private:
    std::string path_;
    void *map_ = nullptr;
    size_t bytes_ = 0;
    int width_ = 0, height_ = 0;
};

// One picture read from a tap.
struct TapFrame {
    uint64_t sequence = 0;
    uint64_t sourceIndex = 0;
    uint64_t ptsUs = 0;
    int width = 0, height = 0;
    std::vector<uint8_t> nv12;
};

// The watcher's side: maps a tap file and copies its newest picture.
class FrameTapReader {
  public:
    FrameTapReader() = default;
    ~FrameTapReader();
    FrameTapReader(const FrameTapReader &) = delete;
    FrameTapReader &operator=(const FrameTapReader &) = delete;

    // Copies the newest picture into *out when there is one newer than
    // out->sequence; false when there is none yet, nothing new, or the file
    // is not (yet) a tap. Maps the file at the first call that finds it.
    bool read_newer(const std::string &path, TapFrame *out);

  private:
    void unmap();
    const void *map_ = nullptr;
    size_t bytes_ = 0;
};

}  // namespace host

#endif
