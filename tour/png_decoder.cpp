// The codec reports an error by a callback that must not return: it jumps back to the setjmp below. Between the two
// there is only the codec's own code and functions without anything to destroy.
#include "png_decoder.h"

#include <png.h>

#include <csetjmp>
#include <cstdio>
#include <cstring>

namespace tour {

struct PngDecoder::State {
  png_structp codec = nullptr;
  png_infop info = nullptr;
  char reason[200] = "out of memory";
  const uint8_t* rest = nullptr;
  size_t size = 0;
  int passes = 1;
};

static void fail(png_structp codec, png_const_charp message) {
  auto* state = static_cast<PngDecoder::State*>(png_get_error_ptr(codec));
  std::snprintf(state->reason, sizeof state->reason, "%s", message);
  png_longjmp(codec, 1);
}

static void stayQuiet(png_structp, png_const_charp) {}

static void feed(png_structp codec, png_bytep data, size_t length) {
  auto* state = static_cast<PngDecoder::State*>(png_get_io_ptr(codec));
  if (length > state->size) png_error(codec, "the file ends too early");
  std::memcpy(data, state->rest, length);
  state->rest += length;
  state->size -= length;
}

PngDecoder::PngDecoder(const uint8_t* bytes, size_t size) : state(std::make_unique<State>()) {
  state->rest = bytes;
  state->size = size;
  state->codec = png_create_read_struct(PNG_LIBPNG_VER_STRING, state.get(), fail, stayQuiet);
  if (state->codec) state->info = png_create_info_struct(state->codec);
}

PngDecoder::~PngDecoder() { png_destroy_read_struct(&state->codec, &state->info, nullptr); }

bool PngDecoder::readHeader() {
  State* const s = state.get();
  if (!s->codec || !s->info) return false;
  if (setjmp(png_jmpbuf(s->codec))) return false;
  png_set_read_fn(s->codec, s, feed);
  png_read_info(s->codec, s->info);
  png_set_expand(s->codec);  // palettes to RGB, few bits to 8, a transparent colour to alpha
  png_set_scale_16(s->codec);
  s->passes = png_set_interlace_handling(s->codec);
  png_read_update_info(s->codec, s->info);
  return true;
}

bool PngDecoder::readPixels(uint8_t* pixels, int32_t step) {
  State* const s = state.get();
  if (setjmp(png_jmpbuf(s->codec))) return false;
  const int32_t rows = height();
  for (int pass = 0; pass < s->passes; ++pass) {
    for (int32_t y = 0; y < rows; ++y) png_read_row(s->codec, pixels + static_cast<ptrdiff_t>(step) * y, nullptr);
  }
  png_read_end(s->codec, nullptr);
  return true;
}

int32_t PngDecoder::width() const { return static_cast<int32_t>(png_get_image_width(state->codec, state->info)); }
int32_t PngDecoder::height() const { return static_cast<int32_t>(png_get_image_height(state->codec, state->info)); }
int32_t PngDecoder::channels() const { return png_get_channels(state->codec, state->info); }
std::string PngDecoder::reason() const { return state->reason; }

}  // namespace tour
