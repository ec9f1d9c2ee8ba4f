#include "Proc/Wrappers/Tessadrin/Tessadrin.CustomIO.h"
