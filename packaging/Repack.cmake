# Packs again what cpack has packed, without what it takes from the machine: folders have other sizes on other file systems,
# which it counts into Installed-Size, and other modes under another umask.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
  set(tree ${CPACK_TEMPORARY_DIRECTORY}-again)
  file(REMOVE_RECURSE ${tree})
  execute_process(COMMAND dpkg-deb --raw-extract ${package} ${tree} COMMAND_ERROR_IS_FATAL ANY)

  # As dpkg-gencontrol(1) counts: files in whole KiB, and one for each folder.
  file(GLOB_RECURSE paths LIST_DIRECTORIES true ${tree}/usr/*)
  set(installedSize 1)
  foreach(path IN LISTS paths)
    set(bytes 1)
    if(NOT IS_DIRECTORY ${path})
      file(SIZE ${path} bytes)
    endif()
    math(EXPR installedSize "${installedSize} + (${bytes} + 1023) / 1024")
  endforeach()
  file(READ ${tree}/DEBIAN/control control)
  string(REGEX REPLACE "Installed-Size: [0-9]+" "Installed-Size: ${installedSize}" control "${control}")
  file(WRITE ${tree}/DEBIAN/control "${control}")

  execute_process(COMMAND find ${tree} -type d -exec chmod 755 {} + COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND find ${tree} -exec touch --date=@$ENV{SOURCE_DATE_EPOCH} {} + COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND dpkg-deb --root-owner-group -Zxz --build ${tree} ${package} OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE_RECURSE ${tree})
endforeach()
