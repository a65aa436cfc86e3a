# The warnings every target of this project is compiled with. Linked PRIVATE: they are not passed
# on to whoever uses the library, nor applied to GoogleTest.
add_library(handheld_warnings INTERFACE)
target_compile_options(
  handheld_warnings INTERFACE -Wall -Wextra -Wshadow -Wconversion
                              $<$<BOOL:${HANDHELD_WERROR}>:-Werror>)
