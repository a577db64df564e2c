/*
 * The live picture: the frames the daemon is given, read from the platform's
 * frame tap, drawn by the replay's renderer and encoded once for every stream
 * client. The left half shows the frame the daemon last analysed with what it
 * found there (the boxes belong to that frame, a few frames behind the
 * camera); the right half the camera's view of the newest frame.
 */
#ifndef FACEDET_LIVE_PICTURE_H
#define FACEDET_LIVE_PICTURE_H

#include <deque>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "frame_picture.h"
#include "frame_tap.h"

namespace live {

class LivePicture {
  public:
    LivePicture(std::string tapPath, std::string source)
        : tapPath_(std::move(tapPath)), source_(std::move(source)) {}

    // Takes the tap's newest frame into the recent ones; false when there is none newer.
    bool newer_frame();
    // The picture as a JPEG: the analysed frame `analysedSource` (when given
    // and still recent; one read a frame or two before it otherwise) with the overlay, beside the camera's
    // view of the newest frame; before the first frame, a card that says what is awaited.
    std::vector<unsigned char> render(const replay::Overlay &overlay, const logs::SimState &camera,
                                      const uint64_t *analysedSource);

  private:
    struct Recent {
        uint64_t sourceIndex;
        cv::Mat bgr;  // at the port's size
    };

    std::string tapPath_;
    std::string source_;
    host::FrameTapReader reader_;
    host::TapFrame frame_;
    std::deque<Recent> recent_;  // newest last, about a second of them
};

}  // namespace live

#endif
