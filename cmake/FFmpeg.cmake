# FFmpeg::avcodec, FFmpeg::avformat, ... : the interface of FFmpeg 7.1, neither older nor 8. Here and, installed, for
# those who use the library.
find_package(PkgConfig REQUIRED)

# find_ffmpeg(<name> <minimum> <below>): sets <name>_FOUND; an error where it is not and nobody asks for that.
function(find_ffmpeg name minimum below)
  if(NOT TARGET FFmpeg::${name})
    pkg_check_modules(${name} QUIET IMPORTED_TARGET GLOBAL "lib${name}>=${minimum}" "lib${name}<${below}")
    if(${name}_FOUND)
      add_library(FFmpeg::${name} ALIAS PkgConfig::${name})
    elseif(DEFINED CMAKE_FIND_PACKAGE_NAME)   # the package says so in its own way
      set(FFMPEG_FAULT "lib${name} ${minimum} or newer and below ${below} is needed (FFmpeg 7.1)" PARENT_SCOPE)
    else()
      message(FATAL_ERROR "lib${name} ${minimum} or newer and below ${below} is needed (FFmpeg 7.1); "
                          "install FFmpeg 7.1's development files, or build through ./dev.")
    endif()
  endif()
endfunction()
find_ffmpeg(avutil     59.39 60)
find_ffmpeg(avcodec    61.19 62)
find_ffmpeg(avformat   61.7  62)
find_ffmpeg(swscale    8.3   9)
find_ffmpeg(swresample 5.3   6)
