# What `cmake --install` puts where.
