if(NETCAM_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
endif()
if(NETCAM_TSAN)
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
  # GCC flags Asio's std::atomic_thread_fence as unseen by TSan (the media
  # client and the simulator's relays): their cross-thread hand-offs go through
  # mutexes and Asio's own locks.
  add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-tsan>)
endif()
if((NETCAM_SANITIZE OR NETCAM_TSAN) AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # GCC's flow analysis misreads the instrumented code (std::regex, std::function
  # internals); the normal build keeps this warning.
  add_compile_options(-Wno-maybe-uninitialized)
endif()
