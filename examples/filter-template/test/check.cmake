# The template's test, run with cmake -P: a job through the filter with xpsfilter, then every page
# of the output rendered with mutool draw. The mark's colour must be where the filter drew it,
# and must not have been there before; the ticket each page is printed with (xpsfilter ticket
# effective) must ask for draft quality, from the page's own ticket.
#   XPSFILTER, MODULE, PIPELINE, JOB, MUTOOL: the programs and files; WORK: a scratch folder.
cmake_minimum_required(VERSION 3.25)

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT status EQUAL 0)
        message(FATAL_ERROR "failed (${status}): ${ARGN}\n${out}${err}")
    endif()
endfunction()

# The red, green and blue of the pixel at x, y of a binary PPM (what mutool draw -F pnm writes).
function(pixel file x y result)
    file(READ "${file}" header LIMIT 32)
    if(NOT header MATCHES "^P6\n([0-9]+) ([0-9]+)\n255\n")
        message(FATAL_ERROR "${file} is not a binary PPM")
    endif()
    string(LENGTH "${CMAKE_MATCH_0}" offset)
    math(EXPR offset "${offset} + (${y} * ${CMAKE_MATCH_1} + ${x}) * 3")
    file(READ "${file}" rgb OFFSET ${offset} LIMIT 3 HEX)
    set(${result} "${rgb}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE "${WORK}")
file(MAKE_DIRECTORY "${WORK}")
# The pipeline names the module by a path relative to itself.
file(COPY "${PIPELINE}" "${MODULE}" DESTINATION "${WORK}")
get_filename_component(pipeline_name "${PIPELINE}" NAME)
run("${XPSFILTER}" run -q --pipeline "${WORK}/${pipeline_name}" "${JOB}" "${WORK}/out.xps")

# The square spans 24..72 units of 1/96 inch: at 48 dots per inch its centre is pixel 24,24.
run("${MUTOOL}" draw -q -r 48 -c rgb -F pnm -o "${WORK}/in-%d.pnm" "${JOB}")
run("${MUTOOL}" draw -q -r 48 -c rgb -F pnm -o "${WORK}/out-%d.pnm" "${WORK}/out.xps")
file(GLOB pages "${WORK}/out-*.pnm")
list(LENGTH pages count)
if(count EQUAL 0)
    message(FATAL_ERROR "mutool rendered no page of ${WORK}/out.xps")
endif()
foreach(page IN LISTS pages)
    string(REPLACE "/out-" "/in-" before "${page}")
    pixel("${page}" 24 24 after_rgb)
    pixel("${before}" 24 24 before_rgb)
    if(NOT after_rgb STREQUAL "e00000")
        message(FATAL_ERROR "${page}: the mark's centre is #${after_rgb}, not #e00000")
    endif()
    if(before_rgb STREQUAL "e00000")
        message(FATAL_ERROR "${before}: the input already has the mark's colour there")
    endif()
    string(REGEX REPLACE ".*/out-([0-9]+)[.]pnm$" "\\1" number "${page}")
    execute_process(COMMAND "${XPSFILTER}" ticket effective "${WORK}/out.xps" --page ${number}
                    RESULT_VARIABLE status OUTPUT_VARIABLE ticket ERROR_VARIABLE err)
    if(NOT status EQUAL 0 OR NOT ticket MATCHES "psk:PageOutputQuality = psk:Draft  [(]page[)]")
        message(FATAL_ERROR "page ${number} is not printed in draft quality:\n${ticket}${err}")
    endif()
endforeach()
message(STATUS "${count} pages marked")
