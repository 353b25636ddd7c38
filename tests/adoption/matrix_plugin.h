double kestrane_host_extra = 0.0;  // a member that a host adds to every matrix
