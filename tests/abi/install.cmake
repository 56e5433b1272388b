# Installs BUILD (configuration CONFIG) and moves the result to PREFIX: an installed tree must not
# know its place.
file(REMOVE_RECURSE ${PREFIX} ${PREFIX}-first)
execute_process(
    COMMAND ${CMAKE_COMMAND} --install ${BUILD} --config ${CONFIG} --prefix ${PREFIX}-first
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
file(RENAME ${PREFIX}-first ${PREFIX})
