// Where the demo's frames come from: the built-in animated fisheye scene or
// a raw I420 file played in a loop.
#ifndef PANOVIEW_HOST_FRAMESOURCE_H
#define PANOVIEW_HOST_FRAMESOURCE_H

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "SyntheticScene.h"

class FrameSource {
public:
    virtual ~FrameSource() = default;
    int width() const { return m_width; }
    int height() const { return m_height; }
    // The next frame, planar I420 of width*height*3/2 bytes; null at a read
    // failure.
    virtual uint8_t *Next() = 0;

protected:
    int m_width = 0, m_height = 0;
};

class SyntheticSource : public FrameSource {
public:
    explicit SyntheticSource(const synthetic::LensFrame &lens);
    uint8_t *Next() override;
    const synthetic::LensFrame &lens() const { return m_lens; }

private:
    synthetic::LensFrame m_lens;
    int m_frame = 0;
    std::vector<uint8_t> m_buffer;
};

class RawI420Source : public FrameSource {
public:
    ~RawI420Source() override;
    bool Open(const std::string &path, int width, int height, std::string *error);
    uint8_t *Next() override;

private:
    FILE *m_file = nullptr;
    std::vector<uint8_t> m_buffer;
};

#endif
