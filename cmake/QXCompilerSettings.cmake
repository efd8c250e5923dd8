# Warnings and sanitizers shared by every target of the project.
add_compile_options(-Wall -Wextra)
if(QX_WARNINGS_AS_ERRORS)
    add_compile_options(-Werror)
endif()

if(QX_SANITIZE)
    list(JOIN QX_SANITIZE "," _qx_sanitizers)
    add_compile_options(-fsanitize=${_qx_sanitizers} -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
    add_link_options(-fsanitize=${_qx_sanitizers})
    if("thread" IN_LIST QX_SANITIZE)
        # GCC warns that TSan does not instrument atomic_thread_fence; Qt's headers use it.
        add_compile_options(-Wno-error=tsan)
    endif()
endif()
