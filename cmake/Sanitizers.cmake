if(INLINE_SERVICE_SANITIZE)
    add_compile_options(-fsanitize=${INLINE_SERVICE_SANITIZE} -fno-omit-frame-pointer
                        -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${INLINE_SERVICE_SANITIZE})
endif()
