// Which thread writes which row: rows on pages of their own that fault at the first access.
#pragma once

#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <set>
#include <vector>

namespace pipeline {

// One page a row; the object handles the program's segmentation faults as long as it lives. One at a time.
class WatchedRows {
 public:
  explicit WatchedRows(int32_t count) : count_(count), threads_(count, 0) {
    void* mapping = mmap(nullptr, size(), PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapping == MAP_FAILED) {
      perror("mmap");
      abort();
    }
    pages_ = static_cast<uint8_t*>(mapping);
    current_ = this;
    struct sigaction action = {};
    action.sa_sigaction = note;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGSEGV, &action, &before_);
  }
  ~WatchedRows() {
    sigaction(SIGSEGV, &before_, nullptr);
    current_ = nullptr;
    munmap(pages_, size());
  }
  WatchedRows(const WatchedRows&) = delete;
  WatchedRows& operator=(const WatchedRows&) = delete;

  static constexpr int32_t step = 4096;
  uint8_t* row(int32_t r) const { return pages_ + size_t(r) * step; }
  uint8_t* data() const { return pages_; }

  // The thread that touched the row first; 0: none.
  long thread(int32_t r) const { return threads_[r]; }
  size_t differentThreads() const { return std::set<long>(threads_.begin(), threads_.end()).size(); }

 private:
  size_t size() const { return size_t(count_) * step; }

  static void note(int, siginfo_t* info, void*) {
    const uint8_t* address = static_cast<const uint8_t*>(info->si_addr);
    if (!current_ || address < current_->pages_ || address >= current_->pages_ + current_->size()) {
      // A true fault: it happens again on return.
      signal(SIGSEGV, SIG_DFL);
      return;
    }
    const size_t r = size_t(address - current_->pages_) / step;
    current_->threads_[r] = syscall(SYS_gettid);
    mprotect(current_->row(int32_t(r)), step, PROT_READ | PROT_WRITE);
  }

  static inline WatchedRows* current_ = nullptr;
  int32_t count_;
  uint8_t* pages_ = nullptr;
  std::vector<long> threads_;
  struct sigaction before_ = {};
};

// Empty if `team` threads have each written the rows of their stripe, the caller the first: height / team rows each,
// and the last thread the rest too.
inline std::string stripesDifference(const WatchedRows& rows, int32_t height, int32_t team) {
  const int32_t stripe = height / team;
  std::vector<long> writers;
  for (int32_t t = 0; t < team; ++t) {
    const int32_t first = t * stripe;
    const int32_t end = t == team - 1 ? height : first + stripe;
    if (first == end) continue;
    for (int32_t r = first; r < end; ++r) {
      if (rows.thread(r) == 0 || rows.thread(r) != rows.thread(first)) {
        return "row " + std::to_string(r) + " is not of thread " + std::to_string(t) + " of " + std::to_string(team);
      }
    }
    for (const long writer : writers) {
      if (writer == rows.thread(first)) return "thread " + std::to_string(t) + " is an earlier one";
    }
    writers.push_back(rows.thread(first));
    if (t == 0 && rows.thread(0) != syscall(SYS_gettid)) return "the first stripe is not the caller's";
  }
  return "";
}

}  // namespace pipeline
