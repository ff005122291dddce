#include "ClipWriter.h"

#include <cstdio>
#include <cstring>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
}

#include "SyntheticScene.h"
#include "VideoSource.h"
#include "ZT5Config.h"

namespace {

const AVCodec *FindEncoder(const std::string &name)
{
    // "h264" means libx264 where the libraries have it.
    if (name == "h264" || name == "x264") {
        if (const AVCodec *c = avcodec_find_encoder_by_name("libx264")) return c;
    }
    if (name == "h265" || name == "hevc") {
        if (const AVCodec *c = avcodec_find_encoder_by_name("libx265")) return c;
    }
    if (const AVCodec *c = avcodec_find_encoder_by_name(name.c_str())) return c;
    const AVCodecDescriptor *d = avcodec_descriptor_get_by_name(name.c_str());
    return d ? avcodec_find_encoder(d->id) : nullptr;
}

bool Supports(const AVCodec *codec, AVPixelFormat f)
{
    if (!codec->pix_fmts) return f == AV_PIX_FMT_YUV420P;
    for (const AVPixelFormat *p = codec->pix_fmts; *p != AV_PIX_FMT_NONE; p++)
        if (*p == f) return true;
    return false;
}

struct Writer {
    AVFormatContext *oc = nullptr;
    AVCodecContext *enc = nullptr;
    AVStream *stream = nullptr;
    AVFrame *frame = nullptr;
    AVPacket *pkt = nullptr;
    bool opened = false;

    ~Writer()
    {
        av_packet_free(&pkt);
        av_frame_free(&frame);
        avcodec_free_context(&enc);
        if (oc && opened) avio_closep(&oc->pb);
        avformat_free_context(oc);
    }

    // Sends one picture (null: the end) and writes what the encoder gives.
    int Encode(AVFrame *f)
    {
        int r = avcodec_send_frame(enc, f);
        if (r < 0) return r;
        for (;;) {
            r = avcodec_receive_packet(enc, pkt);
            if (r == AVERROR(EAGAIN) || r == AVERROR_EOF) return 0;
            if (r < 0) return r;
            av_packet_rescale_ts(pkt, enc->time_base, stream->time_base);
            pkt->stream_index = stream->index;
            r = av_interleaved_write_frame(oc, pkt);
            if (r < 0) return r;
        }
    }
};

} // namespace

bool WriteSceneClip(const ClipOptions &o, std::string *error)
{
    const AVCodec *codec = FindEncoder(o.codec);
    if (!codec || codec->type != AVMEDIA_TYPE_VIDEO) {
        *error = "no video encoder named " + o.codec + " in the installed FFmpeg libraries";
        return false;
    }
    Writer w;
    int r = avformat_alloc_output_context2(&w.oc, nullptr, nullptr, o.path.c_str());
    if (r < 0 || !w.oc) {
        *error = "no container for " + o.path + " (name it .mp4, .mkv, .mov or .avi)";
        return false;
    }

    // Full range where asked, or where the encoder takes nothing else.
    bool full = o.range == 1 || (o.range < 0 && codec->id == AV_CODEC_ID_MJPEG);
    AVPixelFormat pixFmt = full ? AV_PIX_FMT_YUVJ420P : AV_PIX_FMT_YUV420P;
    if (o.tenBit) {
        pixFmt = AV_PIX_FMT_YUV420P10LE;
        if (!Supports(codec, pixFmt)) {
            *error = std::string("the ") + codec->name + " encoder doesn't take 10-bit planar 4:2:0 pictures";
            return false;
        }
    } else if (!Supports(codec, pixFmt)) {
        pixFmt = full ? AV_PIX_FMT_YUV420P : AV_PIX_FMT_YUVJ420P;
        if (!Supports(codec, pixFmt)) {
            *error = std::string("the ") + codec->name + " encoder doesn't take planar 4:2:0 pictures";
            return false;
        }
        full = pixFmt == AV_PIX_FMT_YUVJ420P;
    }
    const uint32_t matrix = o.matrix;
    synthetic::YuvEncoding enc = matrix == ZT5_YUV_MATRIX_BT709    ? synthetic::kBt709
                                 : matrix == ZT5_YUV_MATRIX_BT2020 ? synthetic::kBt2020
                                                                   : synthetic::kBt601;
    enc.fullRange = full;

    w.stream = avformat_new_stream(w.oc, nullptr);
    w.enc = avcodec_alloc_context3(codec);
    w.frame = av_frame_alloc();
    w.pkt = av_packet_alloc();
    if (!w.stream || !w.enc || !w.frame || !w.pkt) {
        *error = "out of memory";
        return false;
    }
    AVCodecContext *c = w.enc;
    c->width = o.width;
    c->height = o.height;
    c->time_base = AVRational{1, o.fps};
    c->framerate = AVRational{o.fps, 1};
    c->pix_fmt = pixFmt;
    c->gop_size = o.fps; // a key picture a second: seeking stays cheap
    c->color_range = full ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
    if (matrix == ZT5_YUV_MATRIX_BT709) {
        c->colorspace = AVCOL_SPC_BT709;
        c->color_primaries = AVCOL_PRI_BT709;
        c->color_trc = AVCOL_TRC_BT709;
    } else if (matrix == ZT5_YUV_MATRIX_BT2020) {
        c->colorspace = AVCOL_SPC_BT2020_NCL;
        c->color_primaries = AVCOL_PRI_BT2020;
        c->color_trc = AVCOL_TRC_BT2020_10;
    } else {
        c->colorspace = AVCOL_SPC_SMPTE170M;
        c->color_primaries = AVCOL_PRI_SMPTE170M;
        c->color_trc = AVCOL_TRC_SMPTE170M;
    }
    if (!full && pixFmt == AV_PIX_FMT_YUV420P) c->strict_std_compliance = FF_COMPLIANCE_UNOFFICIAL; // MJPEG
    // Good quality: the tests compare colours of the decoded pictures.
    if (!std::strcmp(codec->name, "libx264") || !std::strcmp(codec->name, "libx265")) {
        av_opt_set(c->priv_data, "preset", "ultrafast", 0);
        av_opt_set(c->priv_data, "crf", "16", 0);
        // x265 prints on its own unless told not to.
        if (av_log_get_level() < AV_LOG_INFO) av_opt_set(c->priv_data, "x265-params", "log-level=none", 0);
    } else if (!std::strcmp(codec->name, "libvpx-vp9")) {
        av_opt_set(c->priv_data, "deadline", "realtime", 0);
        av_opt_set(c->priv_data, "cpu-used", "8", 0);
        av_opt_set(c->priv_data, "crf", "20", 0);
        c->bit_rate = 0;
    } else {
        c->flags |= AV_CODEC_FLAG_QSCALE;
        c->global_quality = FF_QP2LAMBDA * 2;
    }
    if (w.oc->oformat->flags & AVFMT_GLOBALHEADER) c->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    r = avcodec_open2(c, codec, nullptr);
    if (r < 0) {
        *error = std::string("cannot start the ") + codec->name + " encoder (" + AvError(r) + ")";
        return false;
    }
    avcodec_parameters_from_context(w.stream->codecpar, c);
    w.stream->time_base = c->time_base;

    r = avio_open(&w.oc->pb, o.path.c_str(), AVIO_FLAG_WRITE);
    if (r < 0) {
        *error = "cannot write " + o.path + " (" + AvError(r) + ")";
        return false;
    }
    w.opened = true;
    // The index at the front where the container allows: the file plays
    // while it is still arriving, and a copy cut short keeps its index.
    AVDictionary *muxOptions = nullptr;
    av_dict_set(&muxOptions, "movflags", "+faststart", 0);
    r = avformat_write_header(w.oc, &muxOptions);
    av_dict_free(&muxOptions);
    if (r < 0) {
        *error = "cannot write " + o.path + " (" + AvError(r) + ")";
        return false;
    }

    // The scene is painted on even sizes; an odd size takes all but the
    // last column or row of the next even one.
    synthetic::LensFrame lens;
    lens.width = (o.width + 1) & ~1;
    lens.height = (o.height + 1) & ~1;
    lens.cx = int(int64_t(o.lens[0]) * o.width / 10000);
    lens.cy = int(int64_t(o.lens[1]) * o.height / 10000);
    lens.radius = int(int64_t(o.lens[2]) * o.height / 10000);
    std::vector<uint8_t> scene(size_t(lens.width) * lens.height * 3 / 2);
    w.frame->width = o.width;
    w.frame->height = o.height;
    w.frame->format = pixFmt;
    if (av_frame_get_buffer(w.frame, 0) < 0) {
        *error = "out of memory";
        return false;
    }
    const int cw = lens.width / 2, ch = lens.height / 2;
    for (int i = 0; i < o.frames; i++) {
        synthetic::RenderFisheyeFrame(lens, i, scene.data(), enc);
        if (av_frame_make_writable(w.frame) < 0) {
            *error = "out of memory";
            return false;
        }
        const uint8_t *src[3] = {scene.data(), scene.data() + size_t(lens.width) * lens.height,
                                 scene.data() + size_t(lens.width) * lens.height + size_t(cw) * ch};
        // Rows of each plane: bytes as they are, or 16-bit words holding
        // the sample times four.
        auto row = [&](int p, int y, const uint8_t *from, int samples) {
            uint8_t *to = w.frame->data[p] + size_t(y) * w.frame->linesize[p];
            if (!o.tenBit) {
                std::memcpy(to, from, size_t(samples));
                return;
            }
            for (int x = 0; x < samples; x++) {
                const uint16_t v = uint16_t(from[x] << 2);
                to[2 * x] = uint8_t(v & 0xFF);
                to[2 * x + 1] = uint8_t(v >> 8);
            }
        };
        for (int y = 0; y < o.height; y++) row(0, y, src[0] + size_t(y) * lens.width, o.width);
        for (int p = 1; p <= 2; p++)
            for (int y = 0; y < (o.height + 1) / 2; y++) row(p, y, src[p] + size_t(y) * cw, (o.width + 1) / 2);
        w.frame->pts = i;
        r = w.Encode(w.frame);
        if (r < 0) {
            *error = "encoding failed (" + AvError(r) + ")";
            return false;
        }
    }
    r = w.Encode(nullptr);
    if (r >= 0) r = av_write_trailer(w.oc);
    if (r < 0) {
        *error = "cannot finish " + o.path + " (" + AvError(r) + ")";
        return false;
    }
    std::printf("wrote %s: %d %spictures of %dx%d at %d fps, %s, %s %s range\n", o.path.c_str(), o.frames,
                o.tenBit ? "10-bit " : "", o.width, o.height, o.fps, codec->name,
                matrix == ZT5_YUV_MATRIX_BT709 ? "BT.709" : matrix == ZT5_YUV_MATRIX_BT2020 ? "BT.2020" : "BT.601",
                full ? "full" : "video");
    return true;
}
