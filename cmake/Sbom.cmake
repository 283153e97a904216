# What the library is linked with, with versions and licences: a bill of materials in the form of
# SPDX 2.3, in ${PROJECT_BINARY_DIR}/oxil.spdx.json.

# The versions of the C and C++ libraries are known to the headers that are compiled with.
file(WRITE ${PROJECT_BINARY_DIR}/sbom.cpp "#include <cstddef>\n")
separate_arguments(flags UNIX_COMMAND "${CMAKE_CXX_FLAGS}")
if(CMAKE_SYSROOT)
  list(APPEND flags --sysroot=${CMAKE_SYSROOT})
endif()
execute_process(
  COMMAND ${CMAKE_CXX_COMPILER} ${flags} -dM -E ${PROJECT_BINARY_DIR}/sbom.cpp
  OUTPUT_VARIABLE macros COMMAND_ERROR_IS_FATAL ANY)
foreach(macro IN ITEMS __GLIBC__ __GLIBC_MINOR__ _GLIBCXX_RELEASE)
  if(NOT macros MATCHES "#define ${macro} ([0-9]+)")
    set(CMAKE_MATCH_1 unknown)
  endif()
  set(${macro} ${CMAKE_MATCH_1})
endforeach()

set(sbom_packages)
set(sbom_relationships)

# sbom_package(NAME VERSION LICENCE SONAME...)
function(sbom_package name version licence)
  string(JOIN " " libraries ${ARGN})
  string(APPEND sbom_packages ",
    {
      \"name\": \"${name}\",
      \"SPDXID\": \"SPDXRef-${name}\",
      \"versionInfo\": \"${version}\",
      \"downloadLocation\": \"NOASSERTION\",
      \"filesAnalyzed\": false,
      \"licenseConcluded\": \"${licence}\",
      \"licenseDeclared\": \"${licence}\",
      \"copyrightText\": \"NOASSERTION\",
      \"comment\": \"${libraries}\"
    }")
  string(APPEND sbom_relationships ",
    {
      \"spdxElementId\": \"SPDXRef-oxil\",
      \"relationshipType\": \"DYNAMIC_LINK\",
      \"relatedSpdxElement\": \"SPDXRef-${name}\"
    }")
  set(sbom_packages "${sbom_packages}" PARENT_SCOPE)
  set(sbom_relationships "${sbom_relationships}" PARENT_SCOPE)
endfunction()

sbom_package(glib "${GLIB_VERSION}" "LGPL-2.1-or-later" libglib-2.0.so.0)
if(OXIL_LUA STREQUAL luajit)
  sbom_package(luajit "${LUA_VERSION}" "MIT" libluajit-5.1.so.2)
else()
  sbom_package(lua "${LUA_VERSION}" "MIT" liblua5.1.so.0)
endif()
sbom_package(libxml2 "${XML_VERSION}" "MIT" libxml2.so.2 libxml2.so.16)  # since version 2.14
sbom_package(libxslt "${XSLT_VERSION}" "MIT" libxslt.so.1)
set(gcc_licence "GPL-3.0-or-later WITH GCC-exception-3.1")
sbom_package(libstdc++ "${_GLIBCXX_RELEASE}" "${gcc_licence}" libstdc++.so.6)
sbom_package(libgcc "${_GLIBCXX_RELEASE}" "${gcc_licence}" libgcc_s.so.1)
sbom_package(glibc "${__GLIBC__}.${__GLIBC_MINOR__}" "LGPL-2.1-or-later"
  libc.so.6 libm.so.6 ld-linux-x86-64.so.2 ld-linux-armhf.so.3 ld-linux-aarch64.so.1 ld-linux.so.3)
if(OXIL_PLATFORM_LIBRARIES)
  sbom_package(platform "NOASSERTION" "NOASSERTION" ${OXIL_PLATFORM_LIBRARIES})
else()
  sbom_package(oxil-platform "${PROJECT_VERSION}" "MIT" liboxil-platform.so.0)
endif()

# Built twice from one source it is the same document: SOURCE_DATE_EPOCH sets the time.
string(TIMESTAMP sbom_created "%Y-%m-%dT%H:%M:%SZ" UTC)
string(SHA1 sbom_hash "${PROJECT_VERSION}${sbom_created}${sbom_packages}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/oxil.spdx.json.in ${PROJECT_BINARY_DIR}/oxil.spdx.json @ONLY)
