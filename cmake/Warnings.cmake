# Warnings for our own targets; third-party headers come in as SYSTEM includes.
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
                    -Wno-missing-field-initializers)
if(NETCAM_WERROR)
  add_compile_options(-Werror)
endif()
