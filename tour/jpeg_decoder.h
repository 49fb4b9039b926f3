// A JPEG file in memory, decoded to 8-bit grey or RGB. Errors come back as false and a reason; nothing exits or prints.
#ifndef QOR_TOUR_JPEG_DECODER_H
#define QOR_TOUR_JPEG_DECODER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace tour {

class JpegDecoder {
 public:
  JpegDecoder(const uint8_t* bytes, size_t size);
  ~JpegDecoder();
  JpegDecoder(const JpegDecoder&) = delete;
  JpegDecoder& operator=(const JpegDecoder&) = delete;

  bool readHeader();
  bool readPixels(uint8_t* pixels, int32_t step);
  int32_t width() const;
  int32_t height() const;
  int32_t channels() const;
  std::string reason() const;

  struct State;  // the codec's own, and where its callbacks leave word

 private:
  std::unique_ptr<State> state;
};

}  // namespace tour

#endif
