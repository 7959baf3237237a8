# Installs the built library into scratch prefixes chosen only now, at install
# time, and builds examples/consumer against each: once through
# find_package(tabledb CONFIG), once with the flags that pkg-config gives for a
# tree installed with DESTDIR, as a package build does.
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "failed (${rc}): ${ARGN}")
    endif()
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/examples/consumer -B ${WORK_DIR}/build
    -G ${GENERATOR} -DCMAKE_PREFIX_PATH=${prefix})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${prefix}/${LIBDIR}
    ${WORK_DIR}/build/consumer)

# Staged: installed for /opt/tabledb, found under the staging directory.
set(staged ${WORK_DIR}/stage/opt/tabledb)
run(${CMAKE_COMMAND} -E env DESTDIR=${WORK_DIR}/stage
    ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix /opt/tabledb)
execute_process(
    COMMAND ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${staged}/${LIBDIR}/pkgconfig
        ${PKG_CONFIG} --cflags --libs tabledb
    OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "pkg-config does not know the installed tabledb")
endif()
message(STATUS "pkg-config: ${flags}")
if(NOT flags MATCHES "-L${staged}/")
    message(FATAL_ERROR "pkg-config points outside the installed tree: ${flags}")
endif()
separate_arguments(flags UNIX_COMMAND "${flags}")
run(${CXX} -std=c++17 ${SOURCE_DIR}/examples/consumer/main.cpp ${flags}
    -o ${WORK_DIR}/consumer_pkgconfig)
run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${staged}/${LIBDIR}
    ${WORK_DIR}/consumer_pkgconfig)
