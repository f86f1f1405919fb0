#include "tests/support/tree.h"

std::filesystem::path projectTree() { return TU_TREE; }
