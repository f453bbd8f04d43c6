// Exists only to carry the precompiled headers.
