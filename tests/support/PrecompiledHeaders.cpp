// Empty: the target holds the precompiled headers of the test programs.
