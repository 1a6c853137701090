// The precompiled headers of all tests belong to a target, and a target needs a source.
