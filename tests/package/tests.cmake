# The installed package as applications consume it. Skipped in sanitizer
# builds: it checks packaging, not code, and the consumer would need the
# sanitizer runtime.
if(NOT QX_SANITIZE)
    add_test(NAME package COMMAND ${CMAKE_CURRENT_LIST_DIR}/check-package.sh ${CMAKE_BINARY_DIR})
    set_tests_properties(package PROPERTIES TIMEOUT 300 LABELS package)
endif()
