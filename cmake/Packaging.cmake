# Debian packages of the install components (scripts/package builds them):
#   runtime      -> libvlmcmnlib<SOVERSION>  the shared library
#   development  -> libvlmcmnlib-dev         headers, .so link, CMake package, pkg-config file
#   tool         -> sitelist                 the command-line tool, its man page and bash completion
# Dependencies on system libraries come from dpkg-shlibdeps; the library
# package carries a shlibs file, so packages built against it depend on it.
set(VLM_DEB_RUNTIME libvlmcmnlib${PROJECT_VERSION_MAJOR})
set(VLM_DEB_REVISION 1)
set(VLM_DEB_VERSION ${PROJECT_VERSION}-${VLM_DEB_REVISION})
set(VLM_DEB_MAINTAINER "libvlmCmnLib maintainers <maintainers@vlm.example>")

# What every package must carry for Debian: a copyright file and a
# changelog, under /usr/share/doc/<package>/.
set(VLM_DEB_DOCS ${PROJECT_BINARY_DIR}/debian-docs)
string(TIMESTAMP VLM_DEB_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(${PROJECT_SOURCE_DIR}/cmake/debian/changelog.in ${VLM_DEB_DOCS}/changelog.Debian @ONLY)
execute_process(COMMAND gzip -9nf ${VLM_DEB_DOCS}/changelog.Debian RESULT_VARIABLE gzip_result)
if(NOT gzip_result EQUAL 0)
  message(FATAL_ERROR "gzip of the Debian changelog failed")
endif()
function(vlm_install_deb_docs component package)
  install(FILES ${PROJECT_SOURCE_DIR}/cmake/debian/copyright ${VLM_DEB_DOCS}/changelog.Debian.gz
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package} COMPONENT ${component})
endfunction()
vlm_install_deb_docs(runtime ${VLM_DEB_RUNTIME})
vlm_install_deb_docs(development libvlmcmnlib-dev)
if(VLM_BUILD_TOOLS)
  vlm_install_deb_docs(tool sitelist)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vlmcmnlib)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT ${VLM_DEB_MAINTAINER})
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime development)
if(VLM_BUILD_TOOLS)
  list(APPEND CPACK_COMPONENTS_ALL tool)
endif()

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEBIAN_PACKAGE_RELEASE ${VLM_DEB_REVISION})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# sitelist needs the library of the runtime package, which is not installed
# on the build machine: dpkg-shlibdeps finds it in the build tree, and the
# dependency on its package is stated below.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# A shlibs file for every package holding a shared library with a SONAME
# (only the runtime package): later versions of the library stay compatible.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${VLM_DEB_RUNTIME})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# The ldconfig trigger: the loader's cache learns of the library.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/triggers)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
  "repository site list library of the managed endpoint agent
libvlmCmnLib owns the repository site list of a managed endpoint agent on
embedded Linux: it reads, writes, merges, imports and rewrites the XML site
list (SiteList.xml, ServerSiteList.xml) under the inter-process locks shared
with the agent's other processes.
.
This package holds the shared library.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libvlmcmnlib-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${VLM_DEB_RUNTIME} (= ${VLM_DEB_VERSION})")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION
  "repository site list library of the managed endpoint agent (development files)
libvlmCmnLib owns the repository site list of a managed endpoint agent on
embedded Linux.
.
This package holds the headers (under /usr/include/vlmCmnLib), the link to the
shared library, the CMake package (find_package(vlmCmnLib)) and the
pkg-config file (vlmCmnLib).")

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME sitelist)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "${VLM_DEB_RUNTIME} (>= ${VLM_DEB_VERSION})")
set(CPACK_DEBIAN_TOOL_DESCRIPTION
  "look at and change the agent's repository site list
sitelist does every operation of libvlmCmnLib from the shell, for
administrators and integrators: it shows, validates, imports and installs
site lists, points the agent at a management server, derives the server site
list of a relay and encrypts passwords.
.
The package holds the tool, its man page and its bash completion.")

include(CPack)
