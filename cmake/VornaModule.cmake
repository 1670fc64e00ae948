# vorna_module(NAME DEPS ...) builds src/NAME/*.cpp into the library vorna_NAME.
# A module without sources yet is an interface library so that its dependants link.
function(vorna_module name)
  cmake_parse_arguments(ARG "" "" "DEPS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${name}/*.cpp)
  list(FILTER sources EXCLUDE REGEX ".*/main\\.cpp$")
  if(sources)
    add_library(vorna_${name} STATIC ${sources})
    target_include_directories(vorna_${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(vorna_${name} PUBLIC ${ARG_DEPS} PRIVATE vorna_warnings)
    target_compile_definitions(vorna_${name} PRIVATE _GNU_SOURCE)
  else()
    add_library(vorna_${name} INTERFACE)
    target_include_directories(vorna_${name} INTERFACE ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(vorna_${name} INTERFACE ${ARG_DEPS})
  endif()
  add_library(vorna::${name} ALIAS vorna_${name})
endfunction()

# vorna_tests(MODULE LIBS ...) builds tests/MODULE/*Test.cpp into one GoogleTest
# program and registers each of its tests with ctest.
function(vorna_tests module)
  cmake_parse_arguments(ARG "" "" "LIBS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${module}/*Test.cpp)
  if(NOT sources)
    return()
  endif()
  add_executable(${module}_tests ${sources})
  target_link_libraries(${module}_tests PRIVATE ${ARG_LIBS} vorna_test_support GTest::gmock GTest::gtest_main vorna_warnings)
  target_compile_definitions(${module}_tests PRIVATE _GNU_SOURCE)
  gtest_discover_tests(${module}_tests DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 300)
endfunction()

# vorna_page_scripts(TARGET C_NAME) compiles the current folder's scripts/*.js,
# as its scripts/scripts.gresource.xml lists them, into TARGET as a GResource
# registered by C_NAME_register_resource().
function(vorna_page_scripts target c_name)
  find_program(GLIB_COMPILE_RESOURCES glib-compile-resources REQUIRED)
  set(script_dir ${CMAKE_CURRENT_SOURCE_DIR}/scripts)
  set(manifest ${script_dir}/scripts.gresource.xml)
  file(GLOB script_files CONFIGURE_DEPENDS ${script_dir}/*.js)
  set(generated ${CMAKE_CURRENT_BINARY_DIR}/ScriptResources.c)
  add_custom_command(OUTPUT ${generated}
    COMMAND ${GLIB_COMPILE_RESOURCES} --generate-source --manual-register --c-name ${c_name}
      --sourcedir=${script_dir} --target=${generated} ${manifest}
    DEPENDS ${manifest} ${script_files}
    COMMENT "Compiling the page scripts of ${target} into a resource")
  # Generated code: its warnings are not ours to mend.
  set_source_files_properties(${generated} PROPERTIES COMPILE_OPTIONS "-w")
  target_sources(${target} PRIVATE ${generated})
endfunction()
