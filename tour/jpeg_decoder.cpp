// The codec reports an error by a callback that must not return: it jumps back to the setjmp below. Between the two
// there is only the codec's own code and functions without anything to destroy.
#include "jpeg_decoder.h"

#include <csetjmp>
#include <cstdio>

// After cstdio, which it needs.
#include <jpeglib.h>

// After jpeglib.h.
#include <jerror.h>

namespace tour {

struct JpegDecoder::State {
  jpeg_decompress_struct codec = {};
  jpeg_error_mgr errors = {};
  jmp_buf back;
  char reason[JMSG_LENGTH_MAX] = "";
  const uint8_t* bytes = nullptr;
  size_t size = 0;
};

// The state travels in client_data, since the callbacks get no more than the codec.
static void fail(j_common_ptr codec) {
  auto* state = static_cast<JpegDecoder::State*>(codec->client_data);
  codec->err->format_message(codec, state->reason);
  longjmp(state->back, 1);
}

// The codec fills what is missing at the end of a file with grey and only warns of it; here that is an error. Other
// warnings (stray bytes between markers are common) do no harm.
static void note(j_common_ptr codec, int level) {
  const int code = codec->err->msg_code;
  if (level < 0 && (code == JWRN_JPEG_EOF || code == JWRN_HIT_MARKER)) fail(codec);
}

static void stayQuiet(j_common_ptr) {}

JpegDecoder::JpegDecoder(const uint8_t* bytes, size_t size) : state(std::make_unique<State>()) {
  state->bytes = bytes;
  state->size = size;
  state->codec.err = jpeg_std_error(&state->errors);
  state->errors.error_exit = fail;
  state->errors.emit_message = note;
  state->errors.output_message = stayQuiet;
}

JpegDecoder::~JpegDecoder() { jpeg_destroy_decompress(&state->codec); }

bool JpegDecoder::readHeader() {
  State* const s = state.get();
  s->codec.client_data = s;
  if (setjmp(s->back)) return false;
  jpeg_create_decompress(&s->codec);
  s->codec.client_data = s;
  jpeg_mem_src(&s->codec, s->bytes, s->size);
  jpeg_read_header(&s->codec, TRUE);
  // Colour models without a way to RGB fail in readPixels.
  s->codec.out_color_space = s->codec.jpeg_color_space == JCS_GRAYSCALE ? JCS_GRAYSCALE : JCS_RGB;
  return true;
}

bool JpegDecoder::readPixels(uint8_t* pixels, int32_t step) {
  State* const s = state.get();
  if (setjmp(s->back)) return false;
  jpeg_start_decompress(&s->codec);
  while (s->codec.output_scanline < s->codec.output_height) {
    JSAMPROW row = pixels + static_cast<ptrdiff_t>(step) * s->codec.output_scanline;
    jpeg_read_scanlines(&s->codec, &row, 1);
  }
  jpeg_finish_decompress(&s->codec);
  return true;
}

int32_t JpegDecoder::width() const { return static_cast<int32_t>(state->codec.image_width); }
int32_t JpegDecoder::height() const { return static_cast<int32_t>(state->codec.image_height); }
int32_t JpegDecoder::channels() const { return state->codec.out_color_space == JCS_GRAYSCALE ? 1 : 3; }
std::string JpegDecoder::reason() const { return state->reason; }

}  // namespace tour
