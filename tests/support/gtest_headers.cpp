// Gives the precompiled headers of the tests a target to be made for.
