#include "Proc/Wrappers/Tessadrin/OutputFormat.h"
