#include "video_decoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <cmath>

namespace host {

// The FFmpeg objects of one open file, freed in the order they depend on each other.
struct VideoDecoder::Av {
    std::string path;
    AVFormatContext *format = nullptr;
    AVCodecContext *codec = nullptr;
    AVPacket *packet = nullptr;
    AVFrame *frame = nullptr;
    SwsContext *sws = nullptr;
    int stream = -1;
    bool haveFrame = false;
    // What the scaler was last made for, so that it is made again only when that changes.
    int srcWidth = 0, srcHeight = 0, srcFormat = -1, srcFullRange = -1, dstWidth = 0, dstHeight = 0;

    ~Av() {
        sws_freeContext(sws);
        av_frame_free(&frame);
        av_packet_free(&packet);
        avcodec_free_context(&codec);
        avformat_close_input(&format);
    }
};

namespace {

// The old full-range ("JPEG") formats, as their plain forms and a range.
AVPixelFormat plain_format(int format, bool *fullRange) {
    switch (format) {
        case AV_PIX_FMT_YUVJ420P:
            *fullRange = true;
            return AV_PIX_FMT_YUV420P;
        case AV_PIX_FMT_YUVJ422P:
            *fullRange = true;
            return AV_PIX_FMT_YUV422P;
        case AV_PIX_FMT_YUVJ444P:
            *fullRange = true;
            return AV_PIX_FMT_YUV444P;
        default:
            return static_cast<AVPixelFormat>(format);
    }
}

}  // namespace

VideoDecoder::VideoDecoder(std::unique_ptr<Av> av) : av_(std::move(av)) {}

VideoDecoder::~VideoDecoder() = default;

std::unique_ptr<VideoDecoder> VideoDecoder::open(const std::string &path, std::string *error) {
    // A corrupt packet would print a line for each; the count is said once instead.
    av_log_set_level(AV_LOG_FATAL);
    auto av = std::make_unique<Av>();
    av->path = path;
    if (avformat_open_input(&av->format, path.c_str(), nullptr, nullptr) < 0 ||
        avformat_find_stream_info(av->format, nullptr) < 0) {
        *error = "FFmpeg cannot read it as a video";
        return nullptr;
    }
    const AVCodec *codec = nullptr;
    av->stream = av_find_best_stream(av->format, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
    if (av->stream < 0 || codec == nullptr) {
        *error = "FFmpeg finds no video in it that it can decode";
        return nullptr;
    }
    const AVStream *stream = av->format->streams[av->stream];
    av->codec = avcodec_alloc_context3(codec);
    av->packet = av_packet_alloc();
    av->frame = av_frame_alloc();
    if (av->codec == nullptr || av->packet == nullptr || av->frame == nullptr ||
        avcodec_parameters_to_context(av->codec, stream->codecpar) < 0) {
        *error = "FFmpeg cannot set up its decoder";
        return nullptr;
    }
    // The codec's own threads, as many as the machine has.
    av->codec->thread_count = 0;
    av->codec->thread_type = FF_THREAD_FRAME | FF_THREAD_SLICE;
    if (avcodec_open2(av->codec, codec, nullptr) < 0) {
        *error = std::string("FFmpeg cannot open its ") + codec->name + " decoder";
        return nullptr;
    }
    std::unique_ptr<VideoDecoder> decoder(new VideoDecoder(std::move(av)));
    // Containers may announce 0 or nonsense; a camera's 30 fps is the fallback.
    const AVRational rate =
        av_guess_frame_rate(decoder->av_->format, const_cast<AVStream *>(stream), nullptr);
    const double fps = rate.num > 0 && rate.den > 0 ? av_q2d(rate) : 0.0;
    decoder->fps_ = fps >= 1.0 && fps <= 240.0 ? fps : 30.0;
    if (stream->nb_frames > 0) {
        decoder->frames_ = static_cast<long>(stream->nb_frames);
    } else if (decoder->av_->format->duration > 0) {
        decoder->frames_ =
            std::lround(static_cast<double>(decoder->av_->format->duration) / AV_TIME_BASE * decoder->fps_);
    }
    return decoder;
}

bool VideoDecoder::receive() {
    const int r = avcodec_receive_frame(av_->codec, av_->frame);
    if (r == 0) {
        av_->haveFrame = true;
        return true;
    }
    if (r != AVERROR(EAGAIN) && r != AVERROR_EOF) {
        ++failed_;  // a frame the decoder gave up on: the next one may decode
    }
    return false;
}

bool VideoDecoder::next() {
    for (;;) {
        if (receive()) {
            return true;
        }
        if (draining_) {
            return false;  // the decoder has given out all it held
        }
        const int r = av_read_frame(av_->format, av_->packet);
        if (r < 0) {
            // The end of the file, or a read error that ends the video early.
            avcodec_send_packet(av_->codec, nullptr);
            draining_ = true;
            continue;
        }
        if (av_->packet->stream_index == av_->stream && avcodec_send_packet(av_->codec, av_->packet) < 0) {
            ++failed_;
        }
        av_packet_unref(av_->packet);
    }
}

void VideoDecoder::scale_to_nv12(int width, int height, uint8_t *dst) {
    const size_t luma = static_cast<size_t>(width) * height;
    if (!av_->haveFrame) {
        std::fill(dst, dst + luma, static_cast<uint8_t>(16));
        std::fill(dst + luma, dst + luma * 3 / 2, static_cast<uint8_t>(128));
        return;
    }
    const AVFrame &f = *av_->frame;
    bool fullRange = f.color_range == AVCOL_RANGE_JPEG;
    const AVPixelFormat format = plain_format(f.format, &fullRange);
    if (av_->sws == nullptr || f.width != av_->srcWidth || f.height != av_->srcHeight ||
        format != av_->srcFormat || static_cast<int>(fullRange) != av_->srcFullRange ||
        width != av_->dstWidth || height != av_->dstHeight) {
        // Shrinking averages areas, enlarging interpolates, as the pictures
        // were scaled before: the same grey levels at the port's size.
        const int flags = width < f.width || height < f.height ? SWS_AREA : SWS_BILINEAR;
        sws_freeContext(av_->sws);
        av_->sws = sws_getContext(f.width, f.height, format, width, height, AV_PIX_FMT_NV12, flags, nullptr,
                                  nullptr, nullptr);
        if (av_->sws != nullptr) {
            const int *coefficients = sws_getCoefficients(SWS_CS_DEFAULT);
            // Always the video range out, as the port's pictures were made before.
            sws_setColorspaceDetails(av_->sws, coefficients, fullRange ? 1 : 0, coefficients, 0, 0, 1 << 16,
                                     1 << 16);
        }
        av_->srcWidth = f.width;
        av_->srcHeight = f.height;
        av_->srcFormat = format;
        av_->srcFullRange = fullRange ? 1 : 0;
        av_->dstWidth = width;
        av_->dstHeight = height;
    }
    if (av_->sws == nullptr) {
        av_->haveFrame = false;  // a format the scaler cannot read: grey, as before the first picture
        scale_to_nv12(width, height, dst);
        return;
    }
    uint8_t *planes[4] = {dst, dst + luma, nullptr, nullptr};
    const int strides[4] = {width, width, 0, 0};
    sws_scale(av_->sws, f.data, f.linesize, 0, f.height, planes, strides);
}

bool VideoDecoder::rewind() {
    // Seeking to the start is unreliable with some codecs; opening again is not.
    std::string error;
    std::unique_ptr<VideoDecoder> fresh = open(av_->path, &error);
    if (!fresh) {
        return false;
    }
    av_ = std::move(fresh->av_);
    draining_ = false;
    return true;
}

}  // namespace host
