# Where CMake looks by itself: the package's own files are in the prefix.
include("/opt/PELORIKclient/lib/cmake/pelorikutil/pelorikutilConfig.cmake")
