/* Statistics of images under masks: mean and deviation, extrema, norms. Included by qorcvmx.h. */

/**
 * Mean of the pixels that a mask selects, of one image (C1MR) or of one channel of a three-channel image (C3CMR).
 *
 * A pixel is selected where its mask byte is not 0; all others have no effect, a NaN among them neither. `coi` is the
 * channel of interest, 1 to 3. `mean` receives the result; it is 0.0 where no pixel is selected, which is no failure.
 *
 * Integers are summed exactly, row by row; rows of 16u sums are taken in 32 bits and wrap, and a row sum of 2^31 and
 * more counts as negative in the C1MR form where it works in one thread. 32f values are added one by one to a 64f total
 * in row-major order, with several threads one total a stripe, so the last bits depend on the number of threads.
 *
 * Statuses: qorStatusNullPtr (src, mask, mean); qorStatusBadSize; qorStatusBadStep (srcStep); for 16u
 * qorStatusBadStepAlign before qorStatusBadStep (maskStep), for 32f after it; qorStatusBadCoi.
 */
/**@{*/
QORAPI(QorStatus, qoriMean_8u_C1MR,
       (const uint8_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, double* mean));
QORAPI(QorStatus, qoriMean_8s_C1MR,
       (const int8_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, double* mean));
QORAPI(QorStatus, qoriMean_16u_C1MR,
       (const uint16_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, double* mean));
QORAPI(QorStatus, qoriMean_32f_C1MR,
       (const float* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, double* mean));
QORAPI(QorStatus, qoriMean_8u_C3CMR,
       (const uint8_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, int32_t coi,
        double* mean));
QORAPI(QorStatus, qoriMean_8s_C3CMR,
       (const int8_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, int32_t coi,
        double* mean));
QORAPI(QorStatus, qoriMean_16u_C3CMR,
       (const uint16_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, int32_t coi,
        double* mean));
QORAPI(QorStatus, qoriMean_32f_C3CMR,
       (const float* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, int32_t coi,
        double* mean));
/**@}*/

/**
 * Mean and standard deviation of all pixels (C1R, C3CR) or of those that a mask selects (C1MR, C3CMR), of one image or
 * of channel `coi` (1 to 3) of a three-channel image.
 *
 * The deviation is that of the whole population: the root of |mean of squares - mean * mean|. `mean` and `stdDev` may
 * each be null and are then not written. Without a selected pixel both are 0.0, which is no failure. Sums are taken as
 * in qoriMean_*; sums of squares in a 64f total, row by row for integers, where each row is exact, and pixel by pixel
 * for 32f. Of 16u the squares of the distances to 32768 are summed. A 32f deviation that is small against the mean is
 * computed anew in a second pass over the image, from the distances to the mean.
 *
 * Statuses: qorStatusNullPtr (src, mask); qorStatusBadSize; qorStatusBadStep (srcStep); for 16u qorStatusBadStepAlign
 * before qorStatusBadStep (maskStep), for 32f after it; qorStatusBadCoi.
 */
/**@{*/
QORAPI(QorStatus, qoriMean_StdDev_8u_C1R,
       (const uint8_t* src, int32_t srcStep, QoriSize roiSize, double* mean, double* stdDev));
QORAPI(QorStatus, qoriMean_StdDev_8s_C1R,
       (const int8_t* src, int32_t srcStep, QoriSize roiSize, double* mean, double* stdDev));
QORAPI(QorStatus, qoriMean_StdDev_16u_C1R,
       (const uint16_t* src, int32_t srcStep, QoriSize roiSize, double* mean, double* stdDev));
QORAPI(QorStatus, qoriMean_StdDev_32f_C1R,
       (const float* src, int32_t srcStep, QoriSize roiSize, double* mean, double* stdDev));
QORAPI(QorStatus, qoriMean_StdDev_8u_C3CR,
       (const uint8_t* src, int32_t srcStep, QoriSize roiSize, int32_t coi, double* mean, double* stdDev));
QORAPI(QorStatus, qoriMean_StdDev_8s_C3CR,
       (const int8_t* src, int32_t srcStep, QoriSize roiSize, int32_t coi, double* mean, double* stdDev));
QORAPI(QorStatus, qoriMean_StdDev_16u_C3CR,
       (const uint16_t* src, int32_t srcStep, QoriSize roiSize, int32_t coi, double* mean, double* stdDev));
QORAPI(QorStatus, qoriMean_StdDev_32f_C3CR,
       (const float* src, int32_t srcStep, QoriSize roiSize, int32_t coi, double* mean, double* stdDev));
QORAPI(QorStatus, qoriMean_StdDev_8u_C1MR,
       (const uint8_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, double* mean,
        double* stdDev));
QORAPI(QorStatus, qoriMean_StdDev_8s_C1MR,
       (const int8_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, double* mean,
        double* stdDev));
QORAPI(QorStatus, qoriMean_StdDev_16u_C1MR,
       (const uint16_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, double* mean,
        double* stdDev));
QORAPI(QorStatus, qoriMean_StdDev_32f_C1MR,
       (const float* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, double* mean,
        double* stdDev));
QORAPI(QorStatus, qoriMean_StdDev_8u_C3CMR,
       (const uint8_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, int32_t coi,
        double* mean, double* stdDev));
QORAPI(QorStatus, qoriMean_StdDev_8s_C3CMR,
       (const int8_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, int32_t coi,
        double* mean, double* stdDev));
QORAPI(QorStatus, qoriMean_StdDev_16u_C3CMR,
       (const uint16_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, int32_t coi,
        double* mean, double* stdDev));
QORAPI(QorStatus, qoriMean_StdDev_32f_C3CMR,
       (const float* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, int32_t coi,
        double* mean, double* stdDev));
/**@}*/

/**
 * Smallest and largest pixel and where they are, of all pixels (C1R, C3CR) or of those that a mask selects (C1MR,
 * C3CMR), of one image or of channel `coi` (1 to 3) of a three-channel image.
 *
 * The values are 32f for all types. Of equal extrema the topmost counts, and in its row the leftmost. All four results
 * may be null and are then not written. Without a selected pixel all are 0, which is no failure.
 *
 * 32f: NaN pixels are passed over, but one that stands left of the extreme in its row takes its location; an image of
 * nothing but NaN or +infinity (-infinity) leaves +-FLT_MAX as the smallest (largest) value. Under a mask a NaN as the
 * first selected pixel stays both extrema.
 *
 * Under a mask, with several threads (16384 pixels and more), a stripe of rows without a selected pixel takes part with
 * the value 0 at the start of its first row: where 0 lies outside the range of the selected pixels it is reported.
 *
 * Statuses: qorStatusNullPtr (src, mask); qorStatusBadSize; qorStatusBadStep (srcStep, maskStep); qorStatusBadStepAlign
 * (16u, 32f); qorStatusBadCoi.
 */
/**@{*/
QORAPI(QorStatus, qoriMinMaxIndx_8u_C1R,
       (const uint8_t* src, int32_t srcStep, QoriSize roiSize, float* minVal, float* maxVal, QoriPoint* minIndex,
        QoriPoint* maxIndex));
QORAPI(QorStatus, qoriMinMaxIndx_8s_C1R,
       (const int8_t* src, int32_t srcStep, QoriSize roiSize, float* minVal, float* maxVal, QoriPoint* minIndex,
        QoriPoint* maxIndex));
QORAPI(QorStatus, qoriMinMaxIndx_16u_C1R,
       (const uint16_t* src, int32_t srcStep, QoriSize roiSize, float* minVal, float* maxVal, QoriPoint* minIndex,
        QoriPoint* maxIndex));
QORAPI(QorStatus, qoriMinMaxIndx_32f_C1R,
       (const float* src, int32_t srcStep, QoriSize roiSize, float* minVal, float* maxVal, QoriPoint* minIndex,
        QoriPoint* maxIndex));
QORAPI(QorStatus, qoriMinMaxIndx_8u_C3CR,
       (const uint8_t* src, int32_t srcStep, QoriSize roiSize, int32_t coi, float* minVal, float* maxVal,
        QoriPoint* minIndex, QoriPoint* maxIndex));
QORAPI(QorStatus, qoriMinMaxIndx_8s_C3CR,
       (const int8_t* src, int32_t srcStep, QoriSize roiSize, int32_t coi, float* minVal, float* maxVal,
        QoriPoint* minIndex, QoriPoint* maxIndex));
QORAPI(QorStatus, qoriMinMaxIndx_16u_C3CR,
       (const uint16_t* src, int32_t srcStep, QoriSize roiSize, int32_t coi, float* minVal, float* maxVal,
        QoriPoint* minIndex, QoriPoint* maxIndex));
QORAPI(QorStatus, qoriMinMaxIndx_32f_C3CR,
       (const float* src, int32_t srcStep, QoriSize roiSize, int32_t coi, float* minVal, float* maxVal,
        QoriPoint* minIndex, QoriPoint* maxIndex));
QORAPI(QorStatus, qoriMinMaxIndx_8u_C1MR,
       (const uint8_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, float* minVal,
        float* maxVal, QoriPoint* minIndex, QoriPoint* maxIndex));
QORAPI(QorStatus, qoriMinMaxIndx_8s_C1MR,
       (const int8_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, float* minVal,
        float* maxVal, QoriPoint* minIndex, QoriPoint* maxIndex));
QORAPI(QorStatus, qoriMinMaxIndx_16u_C1MR,
       (const uint16_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, float* minVal,
        float* maxVal, QoriPoint* minIndex, QoriPoint* maxIndex));
QORAPI(QorStatus, qoriMinMaxIndx_32f_C1MR,
       (const float* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, float* minVal,
        float* maxVal, QoriPoint* minIndex, QoriPoint* maxIndex));
QORAPI(QorStatus, qoriMinMaxIndx_8u_C3CMR,
       (const uint8_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, int32_t coi,
        float* minVal, float* maxVal, QoriPoint* minIndex, QoriPoint* maxIndex));
QORAPI(QorStatus, qoriMinMaxIndx_8s_C3CMR,
       (const int8_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, int32_t coi,
        float* minVal, float* maxVal, QoriPoint* minIndex, QoriPoint* maxIndex));
QORAPI(QorStatus, qoriMinMaxIndx_16u_C3CMR,
       (const uint16_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, int32_t coi,
        float* minVal, float* maxVal, QoriPoint* minIndex, QoriPoint* maxIndex));
QORAPI(QorStatus, qoriMinMaxIndx_32f_C3CMR,
       (const float* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, int32_t coi,
        float* minVal, float* maxVal, QoriPoint* minIndex, QoriPoint* maxIndex));
/**@}*/

/**
 * Norms of the pixels x that a mask selects, of one image (C1MR) or of channel `coi` (1 to 3) of a three-channel image
 * (C3CMR): `Inf` the greatest |x|, `L1` the sum of |x|, `L2` the root of the sum of x * x.
 *
 * A pixel is selected where its mask byte is not 0; all others count as 0, a NaN among them too. `value` receives the
 * result, 0.0 where no pixel is selected. 8-bit sums are integers and exact; their L1 sums of one row are taken in
 * signed 32 bits. Sums of 16u and 32f are 64f totals in row-major order, with several threads one a stripe, so their
 * last bits may depend on the number of threads. Inf passes over NaN.
 *
 * Statuses: qorStatusNullPtr (src, mask, value); qorStatusBadSize; qorStatusBadStep (srcStep); qorStatusBadStepAlign
 * (16u, 32f); qorStatusBadStep (maskStep); qorStatusBadCoi.
 */
/**@{*/
QORAPI(QorStatus, qoriNorm_Inf_8u_C1MR,
       (const uint8_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNorm_Inf_8s_C1MR,
       (const int8_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNorm_Inf_16u_C1MR,
       (const uint16_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNorm_Inf_32f_C1MR,
       (const float* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNorm_Inf_8u_C3CMR,
       (const uint8_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, int32_t coi,
        double* value));
QORAPI(QorStatus, qoriNorm_Inf_8s_C3CMR,
       (const int8_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, int32_t coi,
        double* value));
QORAPI(QorStatus, qoriNorm_Inf_16u_C3CMR,
       (const uint16_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, int32_t coi,
        double* value));
QORAPI(QorStatus, qoriNorm_Inf_32f_C3CMR,
       (const float* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, int32_t coi,
        double* value));
QORAPI(QorStatus, qoriNorm_L1_8u_C1MR,
       (const uint8_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNorm_L1_8s_C1MR,
       (const int8_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNorm_L1_16u_C1MR,
       (const uint16_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNorm_L1_32f_C1MR,
       (const float* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNorm_L1_8u_C3CMR,
       (const uint8_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, int32_t coi,
        double* value));
QORAPI(QorStatus, qoriNorm_L1_8s_C3CMR,
       (const int8_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, int32_t coi,
        double* value));
QORAPI(QorStatus, qoriNorm_L1_16u_C3CMR,
       (const uint16_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, int32_t coi,
        double* value));
QORAPI(QorStatus, qoriNorm_L1_32f_C3CMR,
       (const float* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, int32_t coi,
        double* value));
QORAPI(QorStatus, qoriNorm_L2_8u_C1MR,
       (const uint8_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNorm_L2_8s_C1MR,
       (const int8_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNorm_L2_16u_C1MR,
       (const uint16_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNorm_L2_32f_C1MR,
       (const float* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNorm_L2_8u_C3CMR,
       (const uint8_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, int32_t coi,
        double* value));
QORAPI(QorStatus, qoriNorm_L2_8s_C3CMR,
       (const int8_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, int32_t coi,
        double* value));
QORAPI(QorStatus, qoriNorm_L2_16u_C3CMR,
       (const uint16_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, int32_t coi,
        double* value));
QORAPI(QorStatus, qoriNorm_L2_32f_C3CMR,
       (const float* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, QoriSize roiSize, int32_t coi,
        double* value));
/**@}*/

/**
 * Norms of the difference x = src1 - src2 under a mask; for the rest as qoriNorm_*. The difference of integers is
 * exact, that of floats is rounded to float.
 *
 * Statuses: qorStatusNullPtr (src1, src2, mask, value); qorStatusBadSize; qorStatusBadStep (src1Step, src2Step,
 * maskStep); qorStatusBadStepAlign (16u, 32f); qorStatusBadCoi.
 */
/**@{*/
QORAPI(QorStatus, qoriNormDiff_Inf_8u_C1MR,
       (const uint8_t* src1, int32_t src1Step, const uint8_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNormDiff_Inf_8s_C1MR,
       (const int8_t* src1, int32_t src1Step, const int8_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNormDiff_Inf_16u_C1MR,
       (const uint16_t* src1, int32_t src1Step, const uint16_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNormDiff_Inf_32f_C1MR,
       (const float* src1, int32_t src1Step, const float* src2, int32_t src2Step, const uint8_t* mask, int32_t maskStep,
        QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNormDiff_Inf_8u_C3CMR,
       (const uint8_t* src1, int32_t src1Step, const uint8_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, int32_t coi, double* value));
QORAPI(QorStatus, qoriNormDiff_Inf_8s_C3CMR,
       (const int8_t* src1, int32_t src1Step, const int8_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, int32_t coi, double* value));
QORAPI(QorStatus, qoriNormDiff_Inf_16u_C3CMR,
       (const uint16_t* src1, int32_t src1Step, const uint16_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, int32_t coi, double* value));
QORAPI(QorStatus, qoriNormDiff_Inf_32f_C3CMR,
       (const float* src1, int32_t src1Step, const float* src2, int32_t src2Step, const uint8_t* mask, int32_t maskStep,
        QoriSize roiSize, int32_t coi, double* value));
QORAPI(QorStatus, qoriNormDiff_L1_8u_C1MR,
       (const uint8_t* src1, int32_t src1Step, const uint8_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNormDiff_L1_8s_C1MR,
       (const int8_t* src1, int32_t src1Step, const int8_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNormDiff_L1_16u_C1MR,
       (const uint16_t* src1, int32_t src1Step, const uint16_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNormDiff_L1_32f_C1MR,
       (const float* src1, int32_t src1Step, const float* src2, int32_t src2Step, const uint8_t* mask, int32_t maskStep,
        QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNormDiff_L1_8u_C3CMR,
       (const uint8_t* src1, int32_t src1Step, const uint8_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, int32_t coi, double* value));
QORAPI(QorStatus, qoriNormDiff_L1_8s_C3CMR,
       (const int8_t* src1, int32_t src1Step, const int8_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, int32_t coi, double* value));
QORAPI(QorStatus, qoriNormDiff_L1_16u_C3CMR,
       (const uint16_t* src1, int32_t src1Step, const uint16_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, int32_t coi, double* value));
QORAPI(QorStatus, qoriNormDiff_L1_32f_C3CMR,
       (const float* src1, int32_t src1Step, const float* src2, int32_t src2Step, const uint8_t* mask, int32_t maskStep,
        QoriSize roiSize, int32_t coi, double* value));
QORAPI(QorStatus, qoriNormDiff_L2_8u_C1MR,
       (const uint8_t* src1, int32_t src1Step, const uint8_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNormDiff_L2_8s_C1MR,
       (const int8_t* src1, int32_t src1Step, const int8_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNormDiff_L2_16u_C1MR,
       (const uint16_t* src1, int32_t src1Step, const uint16_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNormDiff_L2_32f_C1MR,
       (const float* src1, int32_t src1Step, const float* src2, int32_t src2Step, const uint8_t* mask, int32_t maskStep,
        QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNormDiff_L2_8u_C3CMR,
       (const uint8_t* src1, int32_t src1Step, const uint8_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, int32_t coi, double* value));
QORAPI(QorStatus, qoriNormDiff_L2_8s_C3CMR,
       (const int8_t* src1, int32_t src1Step, const int8_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, int32_t coi, double* value));
QORAPI(QorStatus, qoriNormDiff_L2_16u_C3CMR,
       (const uint16_t* src1, int32_t src1Step, const uint16_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, int32_t coi, double* value));
QORAPI(QorStatus, qoriNormDiff_L2_32f_C3CMR,
       (const float* src1, int32_t src1Step, const float* src2, int32_t src2Step, const uint8_t* mask, int32_t maskStep,
        QoriSize roiSize, int32_t coi, double* value));
/**@}*/

/**
 * Norms of the difference src1 - src2 under a mask, divided by the norm of src2 under the same mask; for the rest as
 * qoriNormDiff_*. Of L2 the root is taken after the division.
 *
 * Where the norm of src2 is 0 (so too where no pixel is selected), the result is NaN if that of the difference is 0 and
 * +infinity if it is more; if it is NaN the result is -infinity. The status is then qorStatusZeroDenominator.
 *
 * Statuses: qorStatusZeroDenominator (a warning: `value` has been written); qorStatusNullPtr (src1, src2, mask, value);
 * qorStatusBadSize; qorStatusBadStep (src1Step, src2Step, maskStep); qorStatusBadStepAlign (16u, 32f); qorStatusBadCoi.
 */
/**@{*/
QORAPI(QorStatus, qoriNormRel_Inf_8u_C1MR,
       (const uint8_t* src1, int32_t src1Step, const uint8_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNormRel_Inf_8s_C1MR,
       (const int8_t* src1, int32_t src1Step, const int8_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNormRel_Inf_16u_C1MR,
       (const uint16_t* src1, int32_t src1Step, const uint16_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNormRel_Inf_32f_C1MR,
       (const float* src1, int32_t src1Step, const float* src2, int32_t src2Step, const uint8_t* mask, int32_t maskStep,
        QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNormRel_Inf_8u_C3CMR,
       (const uint8_t* src1, int32_t src1Step, const uint8_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, int32_t coi, double* value));
QORAPI(QorStatus, qoriNormRel_Inf_8s_C3CMR,
       (const int8_t* src1, int32_t src1Step, const int8_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, int32_t coi, double* value));
QORAPI(QorStatus, qoriNormRel_Inf_16u_C3CMR,
       (const uint16_t* src1, int32_t src1Step, const uint16_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, int32_t coi, double* value));
QORAPI(QorStatus, qoriNormRel_Inf_32f_C3CMR,
       (const float* src1, int32_t src1Step, const float* src2, int32_t src2Step, const uint8_t* mask, int32_t maskStep,
        QoriSize roiSize, int32_t coi, double* value));
QORAPI(QorStatus, qoriNormRel_L1_8u_C1MR,
       (const uint8_t* src1, int32_t src1Step, const uint8_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNormRel_L1_8s_C1MR,
       (const int8_t* src1, int32_t src1Step, const int8_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNormRel_L1_16u_C1MR,
       (const uint16_t* src1, int32_t src1Step, const uint16_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNormRel_L1_32f_C1MR,
       (const float* src1, int32_t src1Step, const float* src2, int32_t src2Step, const uint8_t* mask, int32_t maskStep,
        QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNormRel_L1_8u_C3CMR,
       (const uint8_t* src1, int32_t src1Step, const uint8_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, int32_t coi, double* value));
QORAPI(QorStatus, qoriNormRel_L1_8s_C3CMR,
       (const int8_t* src1, int32_t src1Step, const int8_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, int32_t coi, double* value));
QORAPI(QorStatus, qoriNormRel_L1_16u_C3CMR,
       (const uint16_t* src1, int32_t src1Step, const uint16_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, int32_t coi, double* value));
QORAPI(QorStatus, qoriNormRel_L1_32f_C3CMR,
       (const float* src1, int32_t src1Step, const float* src2, int32_t src2Step, const uint8_t* mask, int32_t maskStep,
        QoriSize roiSize, int32_t coi, double* value));
QORAPI(QorStatus, qoriNormRel_L2_8u_C1MR,
       (const uint8_t* src1, int32_t src1Step, const uint8_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNormRel_L2_8s_C1MR,
       (const int8_t* src1, int32_t src1Step, const int8_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNormRel_L2_16u_C1MR,
       (const uint16_t* src1, int32_t src1Step, const uint16_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNormRel_L2_32f_C1MR,
       (const float* src1, int32_t src1Step, const float* src2, int32_t src2Step, const uint8_t* mask, int32_t maskStep,
        QoriSize roiSize, double* value));
QORAPI(QorStatus, qoriNormRel_L2_8u_C3CMR,
       (const uint8_t* src1, int32_t src1Step, const uint8_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, int32_t coi, double* value));
QORAPI(QorStatus, qoriNormRel_L2_8s_C3CMR,
       (const int8_t* src1, int32_t src1Step, const int8_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, int32_t coi, double* value));
QORAPI(QorStatus, qoriNormRel_L2_16u_C3CMR,
       (const uint16_t* src1, int32_t src1Step, const uint16_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, QoriSize roiSize, int32_t coi, double* value));
QORAPI(QorStatus, qoriNormRel_L2_32f_C3CMR,
       (const float* src1, int32_t src1Step, const float* src2, int32_t src2Step, const uint8_t* mask, int32_t maskStep,
        QoriSize roiSize, int32_t coi, double* value));
/**@}*/
