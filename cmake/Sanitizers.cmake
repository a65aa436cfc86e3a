# Instruments everything that is built, GoogleTest included, and sets HANDHELD_TEST_TIMEOUT for the
# tests.
set(HANDHELD_TEST_TIMEOUT 120)

if(HANDHELD_SANITIZE)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    # gcc 12's AddressSanitizer fails when a cancelled thread unwinds.
    message(FATAL_ERROR "HANDHELD_SANITIZE needs clang")
  endif()
  # The vptr check opens a pipe for each object that it sees for the first time: it fails where a
  # test leaves no descriptor, and shows up where one counts them.
  add_compile_options(-fsanitize=${HANDHELD_SANITIZE} -fno-sanitize=vptr -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${HANDHELD_SANITIZE})
  set(HANDHELD_TEST_TIMEOUT 600)
  # Options that are part of each program hold however it is started. Every target of this project
  # links handheld_warnings, and an option counts only where the runtime is: in the program.
  target_sources(
    handheld_warnings INTERFACE $<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:${PROJECT_SOURCE_DIR}/cmake/SanitizerOptions.cpp>)
  target_compile_definitions(
    handheld_warnings INTERFACE HANDHELD_TSAN_SUPPRESSIONS="${PROJECT_SOURCE_DIR}/cmake/tsan.supp")
endif()

if(HANDHELD_SANITIZE MATCHES "thread" AND NOT CMAKE_CROSSCOMPILING_EMULATOR)
  # ThreadSanitizer's fixed shadow layout fails with "unexpected memory mapping" where the kernel
  # spreads mappings over more than 28 random bits; there its programs run without randomisation.
  set(randomBits 0)
  if(EXISTS /proc/sys/vm/mmap_rnd_bits)
    execute_process(COMMAND cat /proc/sys/vm/mmap_rnd_bits
                    OUTPUT_VARIABLE randomBits OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  endif()
  execute_process(COMMAND setarch -R true RESULT_VARIABLE setarchFailed OUTPUT_QUIET ERROR_QUIET)
  # Not readable for everyone: then take the safe way if there is one.
  if(NOT "${randomBits}" MATCHES "^[0-9]+$")
    set(randomBits 32)
  endif()
  if(randomBits GREATER 28 AND NOT setarchFailed)
    set(CMAKE_CROSSCOMPILING_EMULATOR setarch -R)
  endif()
endif()

if(CMAKE_CROSSCOMPILING)
  set(HANDHELD_TEST_TIMEOUT 600)
endif()
