# What a release carries, and what a sanitizer build carries instead.
if(RYND_SANITIZE)
  add_compile_options(-fsanitize=${RYND_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${RYND_SANITIZE})
  # The check of virtual calls looks at memory through a pipe, and finds fault with all of it where tests leave the
  # daemon no descriptor for one.
  add_compile_options(-fno-sanitize=vptr)
endif()
if(RYND_HARDENING)
  add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -fstack-protector-strong)
  add_link_options(-Wl,-z,relro -Wl,-z,now -Wl,--as-needed)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
    add_compile_options(-fcf-protection=full)
  elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "aarch64")
    add_compile_options(-mbranch-protection=standard)
  endif()
endif()
