# Fails when a document that has to name the release by itself names another one than the project.
#
# in   FILE, VERSION, PATTERN: an expression whose first group is the version; its first match in
#      the file is the latest release
file(READ "${FILE}" text)
if(NOT "\n${text}" MATCHES "${PATTERN}")
  message(FATAL_ERROR "${FILE} names no release")
endif()
if(NOT CMAKE_MATCH_1 STREQUAL VERSION)
  message(FATAL_ERROR "${FILE} names release ${CMAKE_MATCH_1} instead of ${VERSION}")
endif()
