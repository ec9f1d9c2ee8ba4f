#include "Proc/Wrappers/Tessadrin/InputFormat.h"
