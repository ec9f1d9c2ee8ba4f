// Conversions that FFmpeg's scaler accepts and can't carry out without ending the process.
#pragma once

#include "Proc/Wrappers/Tessadrin/SafeSwsContext.h"

namespace Quorva::Proc::Details {

/// The bits of the flags that choose an algorithm; FFmpeg accepts at most one of them.
inline constexpr int scalerAlgorithms = SWS_FAST_BILINEAR | SWS_BILINEAR | SWS_BICUBIC | SWS_X | SWS_POINT |
                                        SWS_AREA | SWS_BICUBLIN | SWS_GAUSS | SWS_SINC | SWS_LANCZOS |
                                        SWS_SPLINE;

/// Whether matrices are given, and differ in the scaler's coefficients.
bool ChangesColours(const SwsCtxParams& params);

/// The flags to hand to the scaler. FFmpeg's fast bilinear scaler divides by the chroma's width less 2. It
/// gives way to the plain one for pictures of less than 8 pixels, but not for those of 8 whose chroma has a
/// quarter of that: here it does.
int GetSafeFlags(const SwsCtxParams& params);

/// Whether the parameters let FFmpeg end the process: by its assertion on the width of the Lanczos window, or
/// by filters that amplify until the sums lie outside its tables. This takes for granted that FFmpeg makes a
/// filter; between equal sizes it often makes none, and the parameters do no harm.
/// @param params  with parameters, and with formats that FFmpeg describes
bool AreDangerous(const SwsCtxParams& params);

}  // namespace Quorva::Proc::Details
