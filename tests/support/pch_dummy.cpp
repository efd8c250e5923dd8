// Carries the precompiled header that the test suites share.
