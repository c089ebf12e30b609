# SPDX-License-Identifier: MIT
# After linking: does the stripped program keep within its budget?
#   cmake -D PROGRAM=FILE -D STRIP=TOOL -D BUDGET=BYTES -P checkSize.cmake
execute_process(COMMAND ${STRIP} -o ${PROGRAM}.stripped ${PROGRAM} COMMAND_ERROR_IS_FATAL ANY)
file(SIZE ${PROGRAM}.stripped size)
if(size GREATER BUDGET)
    message(FATAL_ERROR "${PROGRAM}: ${size} bytes stripped, more than its budget of ${BUDGET}")
endif()
