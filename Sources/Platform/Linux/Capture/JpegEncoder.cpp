#include "Platform/Linux/Capture/JpegEncoder.h"

#include <turbojpeg.h>

#include <algorithm>
#include <bit>
#include <cmath>

namespace tervain::Linux {
namespace {

/// Half the colours' resolution in both directions: an eye hardly sees it, and it takes half the
/// time of full resolution.
constexpr TJSAMP subsampling = TJSAMP_420;

constexpr TJPF pixelFormat = std::endian::native == std::endian::little ? TJPF_BGRX : TJPF_XRGB;

}  // namespace

void JpegEncoder::Destroy::operator()(void* encoder) const {
  tjDestroy(encoder);
}

void JpegEncoder::Free::operator()(unsigned char* buffer) const {
  tjFree(buffer);
}

JpegEncoder::JpegEncoder() : encoder_(tjInitCompress()) {}

std::optional<std::string> JpegEncoder::encode(const std::uint32_t* pixels, int width, int height,
                                               double quality) {
  if (!encoder_ || !reserve(tjBufSize(width, height, subsampling))) {
    return std::nullopt;
  }
  const int percent = static_cast<int>(std::lround(std::clamp(quality, 0.01, 1.0) * 100));
  unsigned char* const out = buffer_.get();
  unsigned char* written = out;
  unsigned long size = capacity_;
  if (tjCompress2(encoder_.get(), reinterpret_cast<const unsigned char*>(pixels), width, 0, height,
                  pixelFormat, &written, &size, subsampling, percent, TJFLAG_NOREALLOC) != 0) {
    return std::nullopt;
  }
  return std::string(reinterpret_cast<const char*>(out), size);
}

/// Room for the worst case. What a picture does not fill is never touched, so it takes no memory.
bool JpegEncoder::reserve(unsigned long size) {
  if (capacity_ < size) {
    buffer_.reset(tjAlloc(static_cast<int>(size)));
    capacity_ = buffer_ ? size : 0;
  }
  return capacity_ >= size;
}

}  // namespace tervain::Linux
