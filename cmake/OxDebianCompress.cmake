# Run by cpack before it packs: compresses what Debian wants compressed.
file(GLOB files ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/man/man1/*.1
                ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/doc/*/changelog)
execute_process(COMMAND gzip -9n ${files} COMMAND_ERROR_IS_FATAL ANY)
