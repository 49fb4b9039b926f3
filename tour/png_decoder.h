// A PNG file in memory, decoded to 8-bit grey or RGB, with or without alpha. Errors come back as false and a reason;
// nothing exits or prints.
//
// This goes through the row interface of libpng, not its simplified one, which in some patched versions spoils
// interlaced pictures of 16 bits. Gamma and colour profiles are not applied.
#ifndef QOR_TOUR_PNG_DECODER_H
#define QOR_TOUR_PNG_DECODER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace tour {

class PngDecoder {
 public:
  PngDecoder(const uint8_t* bytes, size_t size);
  ~PngDecoder();
  PngDecoder(const PngDecoder&) = delete;
  PngDecoder& operator=(const PngDecoder&) = delete;

  bool readHeader();
  bool readPixels(uint8_t* pixels, int32_t step);
  int32_t width() const;
  int32_t height() const;
  int32_t channels() const;  // 1 grey, 2 grey and alpha, 3 RGB, 4 RGB and alpha
  std::string reason() const;

  struct State;  // the codec's own, and where its callbacks leave word

 private:
  std::unique_ptr<State> state;
};

}  // namespace tour

#endif
