// Marks what the host library offers to others; everything else stays hidden.
#pragma once

#define QUORVA_HOST_API __attribute__((visibility("default")))
