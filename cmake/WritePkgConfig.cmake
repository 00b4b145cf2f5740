# Run by `cmake --install`: writes kvi.pc and kvi-host.pc for the prefix of
# this installation, with plain absolute paths (no "..", no "//") so that the
# flags pkg-config prints can be used and compared as they are.
# Set by the caller: KVI_PC_TEMPLATES, KVI_PC_INCLUDEDIR, KVI_PC_LIBDIR,
# KVI_PC_VERSION.

# A plain path: normalised, without a trailing slash ("/" becomes "").
function(kvi_plain_path out path)
  cmake_path(SET path NORMALIZE "${path}")
  string(REGEX REPLACE "/+$" "" path "${path}")
  set(${out} "${path}" PARENT_SCOPE)
endfunction()

# A directory below the prefix as pkg-config writes it, or the absolute one.
function(kvi_pc_dir out dir)
  kvi_plain_path(dir "${dir}")
  if(IS_ABSOLUTE "${dir}")
    set(${out} "${dir}" PARENT_SCOPE)
  else()
    set(${out} "\${prefix}/${dir}" PARENT_SCOPE)
  endif()
endfunction()

kvi_plain_path(KVI_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
kvi_pc_dir(KVI_PC_INCLUDE "${KVI_PC_INCLUDEDIR}")
kvi_pc_dir(KVI_PC_LIB "${KVI_PC_LIBDIR}")
if(IS_ABSOLUTE "${KVI_PC_LIBDIR}")
  kvi_plain_path(pkgconfig_dir "${KVI_PC_LIBDIR}/pkgconfig")
else()
  kvi_plain_path(pkgconfig_dir "${KVI_PC_PREFIX}/${KVI_PC_LIBDIR}/pkgconfig")
endif()
foreach(name kvi kvi-host)
  set(file "$ENV{DESTDIR}${pkgconfig_dir}/${name}.pc")
  message(STATUS "Installing: ${file}")
  configure_file("${KVI_PC_TEMPLATES}/${name}.pc.in" "${file}" @ONLY)
  list(APPEND CMAKE_INSTALL_MANIFEST_FILES "${file}")
endforeach()
