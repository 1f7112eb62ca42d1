# What every target of the project shares: language level, floating-point contract, warnings.

# zeph_sources(VAR [SUBDIR...]): the .cpp files of the current folder (and sub-folders). A floor is
# its folder, so adding a file is enough to have it built. Under CMAKE_UNITY_BUILD the files of a
# folder are compiled as one, so that their headers are read once.
function(zeph_sources var)
  set(all)
  foreach(sub IN ITEMS . LISTS ARGN)
    get_filename_component(folder ${sub} ABSOLUTE)
    file(GLOB found CONFIGURE_DEPENDS ${folder}/*.cpp)
    string(MAKE_C_IDENTIFIER "room_${sub}" room)
    set_source_files_properties(${found} PROPERTIES UNITY_GROUP ${room})
    list(APPEND all ${found})
  endforeach()
  set(${var} ${all} PARENT_SCOPE)
endfunction()

function(zeph_configure_target target)
  target_compile_features(${target} PUBLIC cxx_std_17 PRIVATE cxx_std_20)
  set_target_properties(${target} PROPERTIES
    CXX_EXTENSIONS OFF
    POSITION_INDEPENDENT_CODE ON
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    UNITY_BUILD_MODE GROUP)
  # Summation orders are part of the contract: no silent fusing of a multiply and an add.
  target_compile_options(${target} PRIVATE -ffp-contract=off -Wall -Wextra -Wconversion
                         -Wno-sign-conversion -Wformat-security)
  # GCC 12 sees overlapping copies in "literal" + std::string where there are none.
  target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
  if(CMAKE_UNITY_BUILD)  # what a file has for itself looks like a header's there
    target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
  endif()
  if(ZEPH_WARNINGS_AS_ERRORS)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  if(ZEPH_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${ZEPH_SANITIZE} -fno-omit-frame-pointer
                           -fno-sanitize-recover=all)
    target_link_options(${target} PRIVATE -fsanitize=${ZEPH_SANITIZE})
  endif()
endfunction()

# Headers are included from the repository root: #include "solver/protosparse.h". Installed they keep
# their folders below include/zeph_solver/, or below the folder given as the third argument.
function(zeph_include_root target scope)
  set(installed ${CMAKE_INSTALL_INCLUDEDIR}/zeph_solver ${ARGN})
  list(POP_BACK installed folder)
  target_include_directories(${target} ${scope}
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
    $<INSTALL_INTERFACE:${folder}>)
endfunction()
