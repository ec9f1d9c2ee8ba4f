#include "Proc/Wrappers/Tessadrin/Tessadrin.PixelFormats.h"
