/**
 * libqorcvmx: computer-vision primitives for images in the caller's own memory.
 *
 * What all functions have in common:
 *
 * - An image is a pointer to the first pixel of the region of interest and a step: the signed number of *bytes* from
 *   the start of one row to the start of the next, whatever the element type. One QoriSize in pixels serves all images
 *   of a call. Channels are interleaved. Bytes between the end of a row and the start of the next are neither read nor
 *   written. Pointers need no alignment; steps must be multiples of the element size.
 * - Images, masks and buffers belong to the caller from first to last. A `buffer` is scratch memory of at least the
 *   size that the family's GetBufferSize function reports for the same arguments; it holds nothing between calls.
 * - Names end in element types and layout: `_8u16s_C1R` reads unsigned bytes and writes signed 16-bit integers, one
 *   channel, on a region. C3 means three interleaved channels. 8u, 8s, 16u, 16s, 32s are integers, 32f and 64f floats.
 * - Every function but qorcvGetLibVersion() returns a QorStatus. Arguments are checked in a fixed order, the first
 *   failing check decides, and with a negative status nothing has been written unless the function says otherwise.
 *   Unless told otherwise the order is: null pointers (qorStatusNullPtr), width and height below 1 (qorStatusBadSize),
 *   steps shorter than a row (qorStatusBadStep), steps that are no multiple of the element size
 *   (qorStatusBadStepAlign), then the arguments of the operation.
 * - All functions may be called from several threads at once on distinct data. Large images are worked on by several
 *   threads, whose number comes from libqorcore (qorcore.h); results do not depend on it unless a function says so.
 * - No function allocates memory unless its description says so.
 */
#ifndef QORCVMX_H
#define QORCVMX_H

#include "qorcvmx/types.h"

/* Every function is declared through this macro. The library's own sources give it another meaning. */
#ifndef QORAPI
#define QORAPI(type, name, args) type name args
#endif

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Version of the library: one constant record in static storage, which the caller neither frees nor changes. Returns
 * the same pointer on each call, cannot fail, and may be called at any time from any thread.
 */
QORAPI(const QorLibraryVersion*, qorcvGetLibVersion, (void));

#include "qorcvmx/arith.h"
#include "qorcvmx/detect.h"
#include "qorcvmx/distance.h"
#include "qorcvmx/feature.h"
#include "qorcvmx/filter.h"
#include "qorcvmx/geometry.h"
#include "qorcvmx/morph.h"
#include "qorcvmx/motion.h"
#include "qorcvmx/pyramid.h"
#include "qorcvmx/segment.h"
#include "qorcvmx/stats.h"

#ifdef __cplusplus
}
#endif

#endif
