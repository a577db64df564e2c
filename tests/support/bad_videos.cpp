#include "bad_videos.h"

#include <cstdlib>

#include "temp_dir.h"

bool make_video(const std::string &args) {
    return std::system(("ffmpeg -loglevel error -y " + args).c_str()) == 0;
}

bool make_video_with_three_bad_frames(const std::string &path) {
    if (!make_video("-f lavfi -i testsrc=size=320x240:rate=10 -t 2 -c:v mjpeg -f avi " + path)) {
        return false;
    }
    std::string avi = read_file(path);
    size_t at = 0;
    for (int frame = 0; frame < 8; ++frame) {
        at = avi.find("\xff\xd8", at + 1);  // a picture's start
        if (at == std::string::npos) {
            return false;
        }
        if (frame >= 5) {
            const size_t end = avi.find("\xff\xd9", at);  // and its end
            if (end == std::string::npos) {
                return false;
            }
            avi.replace(at, end + 2 - at, end + 2 - at, '\x55');
        }
    }
    write_file(path, avi);
    return true;
}
