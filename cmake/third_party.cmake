# RapidJSON and {fmt} are header-only here. A cross build must never see /usr/include itself
# (it would pull Linux headers in), so each library is reached through a build-local folder
# that links only that library's own headers.
set(CMR_RAPIDJSON_HEADERS "/usr/include/rapidjson" CACHE PATH "Folder holding rapidjson/document.h's headers")
set(CMR_FMT_HEADERS "/usr/include/fmt" CACHE PATH "Folder holding fmt/format.h's headers")
set(CMR_GOOGLETEST_SOURCE "/usr/src/googletest" CACHE PATH "GoogleTest source tree")

set(CMR_THIRD_PARTY_INCLUDE "${CMAKE_BINARY_DIR}/third_party_include")
file(MAKE_DIRECTORY "${CMR_THIRD_PARTY_INCLUDE}")
foreach(pair "rapidjson|${CMR_RAPIDJSON_HEADERS}" "fmt|${CMR_FMT_HEADERS}")
  string(REPLACE "|" ";" parts "${pair}")
  list(GET parts 0 name)
  list(GET parts 1 target)
  if(NOT EXISTS "${target}")
    message(FATAL_ERROR "${name} headers not found at ${target}; run scripts/build, or set the cache variable.")
  endif()
  if(NOT EXISTS "${CMR_THIRD_PARTY_INCLUDE}/${name}")
    file(CREATE_LINK "${target}" "${CMR_THIRD_PARTY_INCLUDE}/${name}" SYMBOLIC COPY_ON_ERROR)
  endif()
endforeach()

add_library(cmr_third_party INTERFACE)
target_include_directories(cmr_third_party SYSTEM INTERFACE "${CMR_THIRD_PARTY_INCLUDE}")
target_compile_definitions(cmr_third_party INTERFACE FMT_HEADER_ONLY RAPIDJSON_HAS_STDSTRING=1)

if(CMR_BUILD_TESTS)
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  set(gtest_force_shared_crt OFF CACHE BOOL "" FORCE)
  add_subdirectory("${CMR_GOOGLETEST_SOURCE}" "${CMAKE_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL)
endif()
