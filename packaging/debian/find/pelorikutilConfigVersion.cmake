include("/opt/PELORIKclient/lib/cmake/pelorikutil/pelorikutilConfigVersion.cmake")
