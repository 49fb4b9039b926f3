// The rate between two layers of a pyramid.
#pragma once

// Rates are over 1 and up to 10. Written so that NaN, which is not over 1, is refused.
static inline bool badRate(float rate) { return !(rate > 1.0f) || rate > 10.0f; }
