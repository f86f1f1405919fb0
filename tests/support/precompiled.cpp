// precompiled.cpp - Carries the headers that every test includes, compiled once (tests/CMakeLists.txt).
