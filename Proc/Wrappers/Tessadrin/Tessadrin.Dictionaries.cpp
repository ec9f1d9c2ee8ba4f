#include "Proc/Wrappers/Tessadrin/Tessadrin.Dictionaries.h"
