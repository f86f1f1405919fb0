// tree.h - Where the project's own files lie for a test that reads them.
#pragma once
#include <filesystem>

/// The project's root. Told to one source alone, so that a checkout in another place compiles only that anew.
std::filesystem::path projectTree();
