#include "Proc/Wrappers/Tessadrin/Tessadrin.Codecs.h"
