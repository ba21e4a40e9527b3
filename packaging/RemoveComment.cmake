# Takes the compiler's signature out of the staged program, which stripping leaves in, as Debian's own tools do.
file(GLOB_RECURSE programs "${CPACK_TEMPORARY_DIRECTORY}/skylet")
list(FILTER programs INCLUDE REGEX "/bin/skylet$")
execute_process(COMMAND strip --remove-section=.comment ${programs} COMMAND_ERROR_IS_FATAL ANY)
