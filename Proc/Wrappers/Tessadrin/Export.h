// Marks what the library offers to others; everything else stays hidden.
#pragma once

#define TESSADRIN_API __attribute__((visibility("default")))
