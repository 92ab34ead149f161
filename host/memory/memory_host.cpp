// Placeholder until the host model lands.
