// Memory that ends (or begins) at a page which nobody may touch.
#pragma once

#include <stddef.h>
#include <stdint.h>

enum class Edge {
  end,   // the last byte is the last one before an unmapped page
  begin  // the first byte is the first one after an unmapped page
};

// `size` bytes against an unmapped page. What is left of the pages on the other side holds a pattern that must not
// change.
class GuardedMemory {
 public:
  explicit GuardedMemory(size_t size, Edge edge = Edge::end);
  ~GuardedMemory();
  GuardedMemory(const GuardedMemory&) = delete;
  GuardedMemory& operator=(const GuardedMemory&) = delete;

  uint8_t* data() const { return data_; }
  size_t size() const { return size_; }
  bool patternIntact() const;

 private:
  uint8_t* mapping_;
  size_t mappingSize_;
  uint8_t* usable_;
  size_t usableSize_;
  uint8_t* data_;
  size_t size_;
};
