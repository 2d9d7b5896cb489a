# OpenUSD's sdf module (and tf, vt, gf, ... behind it) from the pxr-*-dev wheels in the
# project's virtual environment. The wheels' shared libraries carry no run path of their
# own and reference the Python C API, so whatever links them also links libpython and
# carries an old-style RPATH (DT_RPATH, which the loader applies to the libraries'
# own dependencies too) listing every wheel library directory.
#
# Sets GROOMCORE_PXR_SITE and GROOMCORE_PXR_LIBDIRS, and adds the latter to the build RPATH.
execute_process(
  COMMAND ${GROOMCORE_PYTHON} -c "import sysconfig; print(sysconfig.get_paths()['purelib'])"
  OUTPUT_VARIABLE GROOMCORE_PXR_SITE OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE _site_rc)
if(NOT _site_rc EQUAL 0 OR NOT EXISTS "${GROOMCORE_PXR_SITE}/pxr-sdf")
  message(FATAL_ERROR "OpenUSD (pxr-sdf-dev) not found in the project's Python at ${GROOMCORE_PYTHON}: "
                      "run scripts/setup.sh")
endif()
list(APPEND CMAKE_PREFIX_PATH "${GROOMCORE_PXR_SITE}" "${GROOMCORE_PXR_SITE}/TBB")
find_package(pxr-sdf CONFIG REQUIRED)
set(Python3_EXECUTABLE ${GROOMCORE_PYTHON})
find_package(Python3 COMPONENTS Interpreter Development.Embed REQUIRED)
file(GLOB GROOMCORE_PXR_LIBDIRS LIST_DIRECTORIES true "${GROOMCORE_PXR_SITE}/pxr-*/lib" "${GROOMCORE_PXR_SITE}/TBB/lib")
list(FILTER GROOMCORE_PXR_LIBDIRS INCLUDE REGEX "/lib$")
get_filename_component(_pylibdir "${Python3_LIBRARIES}" DIRECTORY)
list(APPEND GROOMCORE_PXR_LIBDIRS "${_pylibdir}")

# Every program of the project, and the installed libraries, find the wheel libraries
# through DT_RPATH; the installed groomcore keeps these absolute directories beside its
# own $ORIGIN.
list(APPEND CMAKE_BUILD_RPATH ${GROOMCORE_PXR_LIBDIRS})
