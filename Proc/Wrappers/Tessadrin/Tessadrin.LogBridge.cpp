#include "Proc/Wrappers/Tessadrin/Tessadrin.LogBridge.h"
