// Vectors of the level that is being built, for what the compiler does not find in plain loops: the widest ones of each
// element type, and those of 16 bytes for short rows.
//
// Loads and stores are intrinsics, as some compilers take a memcpy apart. Of some AVX-512 intrinsics GCC 12 believes
// that they read uninitialised memory; their forms with a mask, of all lanes here, compile to the same instructions
// without the complaint.
#pragma once

#include <immintrin.h>
#include <stddef.h>
#include <stdint.h>

#if defined(__AVX512BW__)
#define QOR_VECTOR_BYTES 64
#elif defined(__AVX2__)
#define QOR_VECTOR_BYTES 32
#else
#define QOR_VECTOR_BYTES 16
#endif
constexpr int32_t vectorBytes = QOR_VECTOR_BYTES;

typedef uint8_t Bytes __attribute__((vector_size(QOR_VECTOR_BYTES)));
typedef float Floats __attribute__((vector_size(QOR_VECTOR_BYTES)));
typedef uint8_t NarrowBytes __attribute__((vector_size(16)));
typedef float NarrowFloats __attribute__((vector_size(16)));
#undef QOR_VECTOR_BYTES

template <class T>
struct LanesOf;
template <>
struct LanesOf<uint8_t> {
  using Wide = Bytes;
  using Narrow = NarrowBytes;
};
template <>
struct LanesOf<float> {
  using Wide = Floats;
  using Narrow = NarrowFloats;
};

template <class Vector, class T>
static constexpr ptrdiff_t lanes = ptrdiff_t(sizeof(Vector) / sizeof(T));

// lesser, greater: lane by lane b, unless a is less (greater); where one of two floats is NaN the result is b.
static inline void load(NarrowBytes& to, const uint8_t* from) {
  to = NarrowBytes(_mm_loadu_si128(reinterpret_cast<const __m128i_u*>(from)));
}
static inline void load(NarrowFloats& to, const float* from) { to = NarrowFloats(_mm_loadu_ps(from)); }
static inline void store(uint8_t* to, NarrowBytes from) {
  _mm_storeu_si128(reinterpret_cast<__m128i_u*>(to), __m128i(from));
}
static inline void store(float* to, NarrowFloats from) { _mm_storeu_ps(to, __m128(from)); }
static inline void setAll(NarrowBytes& to, uint8_t value) { to = NarrowBytes(_mm_set1_epi8(char(value))); }
static inline void setAll(NarrowFloats& to, float value) { to = NarrowFloats(_mm_set1_ps(value)); }
static inline NarrowBytes lesser(NarrowBytes a, NarrowBytes b) {
  return NarrowBytes(_mm_min_epu8(__m128i(a), __m128i(b)));
}
static inline NarrowBytes greater(NarrowBytes a, NarrowBytes b) {
  return NarrowBytes(_mm_max_epu8(__m128i(a), __m128i(b)));
}
static inline NarrowFloats lesser(NarrowFloats a, NarrowFloats b) {
  return NarrowFloats(_mm_min_ps(__m128(a), __m128(b)));
}
static inline NarrowFloats greater(NarrowFloats a, NarrowFloats b) {
  return NarrowFloats(_mm_max_ps(__m128(a), __m128(b)));
}

#if defined(__AVX512BW__)
static inline void load(Bytes& to, const uint8_t* from) { to = Bytes(_mm512_loadu_si512(from)); }
static inline void load(Floats& to, const float* from) { to = Floats(_mm512_loadu_ps(from)); }
static inline void store(uint8_t* to, Bytes from) { _mm512_storeu_si512(to, __m512i(from)); }
static inline void store(float* to, Floats from) { _mm512_storeu_ps(to, __m512(from)); }
static inline void setAll(Bytes& to, uint8_t value) { to = Bytes(_mm512_set1_epi8(char(value))); }
static inline void setAll(Floats& to, float value) { to = Floats(_mm512_set1_ps(value)); }
static inline Bytes lesser(Bytes a, Bytes b) { return Bytes(_mm512_min_epu8(__m512i(a), __m512i(b))); }
static inline Bytes greater(Bytes a, Bytes b) { return Bytes(_mm512_max_epu8(__m512i(a), __m512i(b))); }
static inline Floats lesser(Floats a, Floats b) { return Floats(_mm512_maskz_min_ps(0xffff, __m512(a), __m512(b))); }
static inline Floats greater(Floats a, Floats b) { return Floats(_mm512_maskz_max_ps(0xffff, __m512(a), __m512(b))); }
#elif defined(__AVX2__)
static inline void load(Bytes& to, const uint8_t* from) {
  to = Bytes(_mm256_loadu_si256(reinterpret_cast<const __m256i_u*>(from)));
}
static inline void load(Floats& to, const float* from) { to = Floats(_mm256_loadu_ps(from)); }
static inline void store(uint8_t* to, Bytes from) {
  _mm256_storeu_si256(reinterpret_cast<__m256i_u*>(to), __m256i(from));
}
static inline void store(float* to, Floats from) { _mm256_storeu_ps(to, __m256(from)); }
static inline void setAll(Bytes& to, uint8_t value) { to = Bytes(_mm256_set1_epi8(char(value))); }
static inline void setAll(Floats& to, float value) { to = Floats(_mm256_set1_ps(value)); }
static inline Bytes lesser(Bytes a, Bytes b) { return Bytes(_mm256_min_epu8(__m256i(a), __m256i(b))); }
static inline Bytes greater(Bytes a, Bytes b) { return Bytes(_mm256_max_epu8(__m256i(a), __m256i(b))); }
static inline Floats lesser(Floats a, Floats b) { return Floats(_mm256_min_ps(__m256(a), __m256(b))); }
static inline Floats greater(Floats a, Floats b) { return Floats(_mm256_max_ps(__m256(a), __m256(b))); }
#endif

// The same as values: a vector of the given type, or else the widest one of the elements.
template <class Vector, class T>
static inline Vector loadedAs(const T* from) {
  Vector vector;
  load(vector, from);
  return vector;
}
template <class Vector, class T>
static inline Vector inAllLanesOf(T value) {
  Vector vector;
  setAll(vector, value);
  return vector;
}
template <class T>
static inline typename LanesOf<T>::Wide loaded(const T* from) {
  return loadedAs<typename LanesOf<T>::Wide>(from);
}
template <class T>
static inline typename LanesOf<T>::Wide inAllLanes(T value) {
  return inAllLanesOf<typename LanesOf<T>::Wide>(value);
}
