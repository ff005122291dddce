// Where the demo's frames come from: the built-in animated fisheye scene, a
// raw I420 file played in a loop, or a video file decoded with FFmpeg
// (VideoSource.h).
#ifndef PANOVIEW_HOST_FRAMESOURCE_H
#define PANOVIEW_HOST_FRAMESOURCE_H

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "SyntheticScene.h"

// One picture as the display takes it; valid until the source's next call.
struct Picture {
    uint8_t *planes[3] = {nullptr, nullptr, nullptr}; // Y, U, V (U and V inside the pair rows when semi-planar)
    int strides[3] = {0, 0, 0};                       // bytes from one row to the next
    int width = 0, height = 0;
    uint32_t csType = 0;    // ZT5_FRAME_CS_I420, _NV12 or _SEMIPLANAR_A
    double pts = -1.0;      // seconds from the start of the stream; negative: none, pace at --fps
    uint32_t yuvMatrix = 0; // ZT5_CFG_DISPLAY_YUV_MATRIX word of the picture's colours
    // Tightly packed planes, one after the other from planes[0]: the whole
    // frame can go as one buffer.
    bool contiguous = false;
};

class FrameSource {
public:
    virtual ~FrameSource() = default;
    int width() const { return m_width; }
    int height() const { return m_height; }
    // The next picture (sources loop at their end). False with a message on
    // a failure the player can't go on from.
    virtual bool Next(Picture *picture, std::string *error) = 0;
    // Moves by `seconds` from the picture last given; false when the source
    // can't seek (then nothing changes).
    virtual bool SeekBy(double seconds) { return false; }

protected:
    int m_width = 0, m_height = 0;
};

class SyntheticSource : public FrameSource {
public:
    explicit SyntheticSource(const synthetic::LensFrame &lens);
    bool Next(Picture *picture, std::string *error) override;
    const synthetic::LensFrame &lens() const { return m_lens; }
    // Another lens (or scene) of the same frame size from the next frame on.
    void SetLens(const synthetic::LensFrame &lens) { m_lens = lens; }

private:
    synthetic::LensFrame m_lens;
    int m_frame = 0;
    std::vector<uint8_t> m_buffer;
};

class RawI420Source : public FrameSource {
public:
    ~RawI420Source() override;
    bool Open(const std::string &path, int width, int height, std::string *error);
    bool Next(Picture *picture, std::string *error) override;

private:
    bool Read();
    std::string m_path;
    FILE *m_file = nullptr;
    std::vector<uint8_t> m_buffer;
};

// A tightly packed I420 buffer of width x height as a picture.
Picture PackedI420Picture(uint8_t *buffer, int width, int height);

#endif
