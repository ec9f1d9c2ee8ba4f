#include "Proc/Wrappers/Tessadrin/Tessadrin.Packets.h"
