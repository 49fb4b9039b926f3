// Threads: how the rows of an image are shared out. A family states its gate and passes a body.
//
// The rows are cut by the size of the team that the runtime really gives, which may be smaller than the one requested.
// A frame works in the same way from inside a parallel region of the caller's.
#pragma once

#include "frame/checks.h"
#include "frame/kit/vectors.h"
#include "frame/services.h"

// In place of a team size: work in the calling thread, without a parallel region.
constexpr int32_t serial = 0;

// The gate of many families: so many pixels for each thread that may be used. All in 32 bits, which wrap.
static inline bool enoughPixels(QoriSize size, int32_t pixelsPerThread) {
  return pixels(size) >= owncvGetMaxNumThreads() * pixelsPerThread;
}

// The share of one thread.
struct Stripe {
  int32_t row;       // first row
  int32_t rows;      // number of rows; less than 1 where there is nothing to do
  int32_t thread;    // number of the thread, from 0
  int32_t teamSize;  // threads that run; 1 when serial
};

// The main rule: every thread takes height / teamSize rows, and the last one the remainder too.
static inline Stripe mainStripe(int32_t height, int32_t thread, int32_t teamSize) {
  const int32_t stripeRows = height / teamSize;
  const int32_t stripeRest = thread == teamSize - 1 ? height % teamSize : 0;
  return {thread * stripeRows, stripeRows + stripeRest, thread, teamSize};
}

// Runs body(stripe) in each thread of a team, also in threads that have no rows.
template <class Body>
static inline void runTeam(int32_t height, int32_t threads, Body body) {
  if (threads == serial) {
    body(mainStripe(height, 0, 1));
    return;
  }
  // The size of the team is the same for all its members, so each can ask for itself: no barrier is needed.
#pragma omp parallel num_threads(threads < 1 ? 1 : threads)
  body(mainStripe(height, owncvGetIdThreads(), owncvGetNumThreads()));
}

// Runs body(row, rows) on the stripes of a team.
template <class Body>
static inline void runStripes(int32_t height, int32_t threads, Body body) {
  runTeam(height, threads, [&body](const Stripe& stripe) {
    if (stripe.rows >= 1) body(stripe.row, stripe.rows);
  });
}

// The float rule, which spreads the remainder evenly: stripe t goes from row t * height / stripes + 0.5 up to the next
// one's first row, in float and truncated. Below 2 stripes all is done in the calling thread.
//
// Odd: each thread does the stripe of its number and no other, so with fewer threads than stripes, by the core
// services' count or by the runtime's, the rows of the stripes without a thread are not done at all.
template <class Body>
static inline void runFloatStripes(int32_t height, int32_t stripes, Body body) {
  if (stripes < 2) {
    body(0, height);
    return;
  }
  const int32_t suggested = ownGetNumThreads(), most = suggested < stripes ? suggested : stripes;
  const float rowsPerThread = float(height) / float(stripes);
#pragma omp parallel num_threads(most < 1 ? 1 : most)
  {
    const int32_t thread = owncvGetIdThreads();
    const int32_t first = int32_t(float(thread) * rowsPerThread + 0.5f);
    // In images of millions of rows the rounded limit may lie beyond the last row.
    const float limitOfStripe = float(thread + 1) * rowsPerThread + 0.5f;
    const int32_t limit = limitOfStripe < float(height) ? int32_t(limitOfStripe) : height;
    if (first < limit) body(first, limit - first);
  }
}

// Reductions: each thread writes kernel(row, rows) into its own slot, even without rows (the kernel then gives the
// neutral value), and the calling thread merges the slots from 0 upward, so that a result depends on the team's size
// but not on its timing. Slots for up to 32 threads are in this frame; larger teams get a block of memory.
template <class Slot, class Kernel, class Merge>
static inline Slot reduceStripes(int32_t height, int32_t threads, Kernel kernel, Merge merge) {
  if (threads == serial) return kernel(0, height);
  constexpr int32_t slotsInFrame = 32;
  Slot frameSlots[slotsInFrame];
  Slot* slots = frameSlots;
  int32_t teamSize = 1;
#pragma omp parallel num_threads(threads < 1 ? 1 : threads)
  {
#pragma omp master
    {
      teamSize = owncvGetNumThreads();
      if (teamSize > slotsInFrame) {
        slots = reinterpret_cast<Slot*>(qorsMalloc_64f(int32_t((teamSize * sizeof(Slot) + 7) / 8)));
      }
    }
#pragma omp barrier
    const Stripe stripe = mainStripe(height, owncvGetIdThreads(), teamSize);
    if (slots) slots[stripe.thread] = kernel(stripe.row, stripe.rows);
  }
  // Without memory for the slots the calling thread does all stripes itself, one after the other: the same result.
  Slot total = slots ? slots[0] : kernel(0, mainStripe(height, 0, teamSize).rows);
  for (int32_t t = 1; t < teamSize; ++t) {
    const Stripe stripe = mainStripe(height, t, teamSize);
    merge(total, slots ? slots[t] : kernel(stripe.row, stripe.rows));
  }
  if (teamSize > slotsInFrame) qorsFree(slots);
  return total;
}
