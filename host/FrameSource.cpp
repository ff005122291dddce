#include "FrameSource.h"

#include "ZT5Config.h"

Picture PackedI420Picture(uint8_t *buffer, int width, int height)
{
    Picture p;
    const size_t luma = size_t(width) * height;
    p.planes[0] = buffer;
    p.planes[1] = buffer + luma;
    p.planes[2] = buffer + luma + luma / 4;
    p.strides[0] = width;
    p.strides[1] = p.strides[2] = width / 2;
    p.width = width;
    p.height = height;
    p.csType = ZT5_FRAME_CS_I420;
    p.contiguous = true;
    return p;
}

SyntheticSource::SyntheticSource(const synthetic::LensFrame &lens) : m_lens(lens)
{
    m_width = lens.width;
    m_height = lens.height;
    m_buffer.resize(size_t(m_width) * m_height * 3 / 2);
}

bool SyntheticSource::Next(Picture *picture, std::string *)
{
    synthetic::RenderFisheyeFrame(m_lens, m_frame++, m_buffer.data());
    *picture = PackedI420Picture(m_buffer.data(), m_width, m_height);
    return true;
}

RawI420Source::~RawI420Source()
{
    if (m_file) std::fclose(m_file);
}

bool RawI420Source::Open(const std::string &path, int width, int height, std::string *error)
{
    m_path = path;
    m_file = std::fopen(path.c_str(), "rb");
    if (!m_file) {
        *error = "cannot open " + path;
        return false;
    }
    m_width = width;
    m_height = height;
    m_buffer.resize(size_t(width) * height * 3 / 2);
    if (!Read()) {
        *error = path + " holds less than one " + std::to_string(width) + "x" + std::to_string(height) +
                 " I420 frame";
        return false;
    }
    std::rewind(m_file);
    return true;
}

bool RawI420Source::Read()
{
    for (int attempt = 0; attempt < 2; attempt++) {
        if (std::fread(m_buffer.data(), 1, m_buffer.size(), m_file) == m_buffer.size()) return true;
        std::rewind(m_file); // loop; a partial last frame is dropped
    }
    return false;
}

bool RawI420Source::Next(Picture *picture, std::string *error)
{
    if (!m_file || !Read()) {
        *error = "cannot read a frame from " + m_path;
        return false;
    }
    *picture = PackedI420Picture(m_buffer.data(), m_width, m_height);
    return true;
}
