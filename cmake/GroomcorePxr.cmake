# OpenUSD for the exporter (groomcore::usd), the only part of groomcore that links it.
#
# GROOMCORE_OPENUSD_ROOT names the installation. By default it is the project's own,
# .deps/openusd, which scripts/setup.sh fills from the pxr-*-dev wheels and lays out with
# scripts/openusd_prefix.py; it may be any other installation of the same kind, or a full
# OpenUSD build or a DCC's OpenUSD (a folder holding pxrConfig.cmake).
#
# Sets:
#   GROOMCORE_OPENUSD_TARGET   the sdf target to link (pxr::sdf or sdf)
#   GROOMCORE_OPENUSD_FLAVOR   "wheels" or "pxr", for the installed package config
#   GROOMCORE_OPENUSD_VERSION  the version found, required exactly by consumers
#   GROOMCORE_OPENUSD_LIBDIR   the one directory a process puts on its loader path
#   GROOMCORE_OPENUSD_PYTHON   ON when the libraries leave the Python C API to the process
set(GROOMCORE_OPENUSD_ROOT "${PROJECT_SOURCE_DIR}/.deps/openusd" CACHE PATH
    "OpenUSD installation for the USD exporter: the project's own (scripts/setup.sh), another \
pxr-*-dev prefix, or a full or DCC OpenUSD build (the folder holding pxrConfig.cmake)")
get_filename_component(_usd_root "${GROOMCORE_OPENUSD_ROOT}" ABSOLUTE)

# `pip install .` from a clean clone, where scripts/setup.sh has not made the project's
# prefix: the build environment holds the same pxr-*-dev packages (pyproject.toml asks for
# them), which are laid out the same way in place (that environment is the build's own and
# holds no usd-core).
if(SKBUILD AND NOT EXISTS "${_usd_root}" AND _usd_root STREQUAL "${PROJECT_SOURCE_DIR}/.deps/openusd")
  execute_process(
    COMMAND "${Python_EXECUTABLE}" -c
            "import importlib.metadata as m; print(m.distribution('pxr-plug-dev').locate_file(''))"
    OUTPUT_VARIABLE _site OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE _rc ERROR_QUIET)
  if(NOT _rc EQUAL 0 OR NOT EXISTS "${_site}/pxr-plug/lib/libPxrPlug.so")
    message(FATAL_ERROR "No OpenUSD C++ packages in the build environment: run scripts/setup.sh")
  endif()
  if(NOT EXISTS "${_site}/pxr/lib/libPxrPlug.so")
    execute_process(COMMAND "${Python_EXECUTABLE}" "${PROJECT_SOURCE_DIR}/scripts/openusd_prefix.py" "${_site}"
                    RESULT_VARIABLE _rc)
    if(NOT _rc EQUAL 0)
      message(FATAL_ERROR "Could not lay out OpenUSD in ${_site}")
    endif()
  endif()
  set(_usd_root "${_site}")
  set(GROOMCORE_OPENUSD_ROOT "${_usd_root}" CACHE PATH "" FORCE)
endif()

if(EXISTS "${_usd_root}/pxrConfig.cmake")
  # A full build: one package, module targets without a namespace, libraries in lib/.
  find_package(pxr CONFIG REQUIRED PATHS "${_usd_root}" NO_DEFAULT_PATH)
  set(GROOMCORE_OPENUSD_FLAVOR pxr)
  set(GROOMCORE_OPENUSD_TARGET sdf)
  set(GROOMCORE_OPENUSD_VERSION "${pxr_VERSION}")
  set(GROOMCORE_OPENUSD_LIBDIR "${_usd_root}/lib")
  set(GROOMCORE_OPENUSD_PYTHON OFF)
elseif(EXISTS "${_usd_root}/pxr-sdf/cmake")
  # The pxr-*-dev wheels: one package per module under the prefix.
  if(NOT EXISTS "${_usd_root}/pxr/lib/libPxrPlug.so" OR NOT EXISTS "${_usd_root}/pxr/pluginfo")
    message(FATAL_ERROR "OpenUSD at ${_usd_root} has no pxr/lib and pxr/pluginfo: "
                        "lay it out with scripts/openusd_prefix.py ${_usd_root}")
  endif()
  # The wheels' Python bindings are found through their own config; pick the project's
  # interpreter (the wheels are built for its Python version) unless told otherwise.
  if(NOT DEFINED Python_EXECUTABLE AND EXISTS "${GROOMCORE_PYTHON}")
    set(Python_EXECUTABLE "${GROOMCORE_PYTHON}")
  endif()
  list(PREPEND CMAKE_PREFIX_PATH "${_usd_root}")
  find_package(pxr-sdf CONFIG REQUIRED NO_CMAKE_ENVIRONMENT_PATH NO_SYSTEM_ENVIRONMENT_PATH)
  set(GROOMCORE_OPENUSD_FLAVOR wheels)
  set(GROOMCORE_OPENUSD_TARGET pxr::sdf)
  set(GROOMCORE_OPENUSD_VERSION "${pxr-sdf_VERSION}")
  set(GROOMCORE_OPENUSD_LIBDIR "${_usd_root}/pxr/lib")
  # These libraries call the Python C API without linking libpython (they are built for
  # Python extension modules): a program that loads them must bring it.
  get_target_property(_boost_py pxr::boost-python INTERFACE_LINK_LIBRARIES)
  if(_boost_py MATCHES "Python::Module")
    set(GROOMCORE_OPENUSD_PYTHON ON)
  else()
    set(GROOMCORE_OPENUSD_PYTHON OFF)
  endif()
else()
  message(FATAL_ERROR "No OpenUSD at GROOMCORE_OPENUSD_ROOT=${_usd_root}: run scripts/setup.sh, "
                      "or point it at an OpenUSD installation (the folder holding pxrConfig.cmake)")
endif()
message(STATUS "OpenUSD ${GROOMCORE_OPENUSD_VERSION} (${GROOMCORE_OPENUSD_FLAVOR}) at ${_usd_root}")

# Programs in the build tree find OpenUSD there without any environment; installed files
# name no OpenUSD directory.
list(APPEND CMAKE_BUILD_RPATH "${GROOMCORE_OPENUSD_LIBDIR}")
# Paths in the binaries (OpenUSD's headers record their own file names in its diagnostics)
# are written relative, so that nothing installed names this machine's folders.
target_compile_options(groomcore_flags INTERFACE
  "-ffile-prefix-map=${_usd_root}/=openusd/" "-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=")
