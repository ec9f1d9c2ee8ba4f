#include "Proc/Wrappers/Tessadrin/Tessadrin.TimeBase.h"
