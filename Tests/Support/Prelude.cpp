// Carries the precompiled header that all test programs share; see Tests/CMakeLists.txt.
