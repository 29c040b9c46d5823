# What `cmake --install` puts where, and the Debian packages that CPack makes of it.
#
# Four components, a package each: `program` (the analyser, its companions, their documentation) in
# nalveo16, `library` (libnalveo.so) in libnalveo0, `development` (headers, static library, CMake
# package, pkg-config file) in libnalveo-dev, `python` in python3-nalveo.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)
set(packaging ${CMAKE_CURRENT_LIST_DIR})

# Debian wants manual pages and changelogs compressed, without a time stamp.
find_program(NALVEO_GZIP gzip REQUIRED)
set(compressed)
function(nalveo_compress source name)
    set(target ${CMAKE_CURRENT_BINARY_DIR}/compressed/${name}.gz)
    add_custom_command(OUTPUT ${target}
        COMMAND ${NALVEO_GZIP} -9 -n -c ${source} > ${target}
        DEPENDS ${source} VERBATIM)
    set(compressed ${compressed} ${target} PARENT_SCOPE)
endfunction()
file(MAKE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/compressed)
set(manpages nalveo16 nalveo16-synth nalveo16-compare nalveo16-plot nalveo16-corpus)
foreach(page IN LISTS manpages)
    nalveo_compress(${PROJECT_SOURCE_DIR}/man/${page}.1 ${page}.1)
endforeach()
nalveo_compress(${PROJECT_SOURCE_DIR}/CHANGELOG.md changelog)
nalveo_compress(${packaging}/changelog.Debian changelog.Debian)
add_custom_target(nalveocompressed ALL DEPENDS ${compressed})

# The programs, which need nothing, and the tools around them, which need Python.
set(package ${CMAKE_INSTALL_DATADIR}/doc/nalveo16)
install(TARGETS nalveo16 nalveo16-synth COMPONENT program)
install(PROGRAMS tools/nalveo16-plot tools/nalveo16-corpus tools/nalveo16-compare
    DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
install(FILES tools/nalveowav.py DESTINATION ${CMAKE_INSTALL_DATADIR}/nalveo16 COMPONENT tools)
install(DIRECTORY tools/nalveoplot tools/nalveocorpus DESTINATION ${CMAKE_INSTALL_DATADIR}/nalveo16
    COMPONENT tools PATTERN __pycache__ EXCLUDE)
foreach(page IN LISTS manpages)
    set(component tools)
    if(page STREQUAL "nalveo16" OR page STREQUAL "nalveo16-synth")
        set(component program)
    endif()
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/compressed/${page}.1.gz
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT ${component})
    install(FILES completions/${page}
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT ${component})
endforeach()
# Below /usr, packages have a folder of zsh's for themselves; elsewhere there is one for the site.
install(CODE [[
    set(zshfolder site-functions)
    if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
        set(zshfolder vendor-completions)
    endif()]] COMPONENT program)
install(FILES completions/_nalveo16
    DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/\${zshfolder} COMPONENT program)
install(FILES README.md DESTINATION ${package} COMPONENT program)
install(DIRECTORY docs DESTINATION ${package} COMPONENT program PATTERN words.txt EXCLUDE)
install(DIRECTORY examples DESTINATION ${package} COMPONENT program USE_SOURCE_PERMISSIONS)

# The library. nalveo.h is all that a client of the C interface needs. The C++ routines behind it
# have a folder of headers, which name each other from there, as in "numeric/dft.h".
set_target_properties(nalveocore PROPERTIES EXPORT_NAME nalveo)
set_target_properties(nalveoshared PROPERTIES EXPORT_NAME shared)
install(TARGETS nalveocore EXPORT nalveo COMPONENT development
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/nalveo ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS nalveoshared EXPORT nalveo
    LIBRARY COMPONENT library NAMELINK_COMPONENT development
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES include/nalveo.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
# Headers that these include go along.
set(headers analysis/ccanalysis.h analysis/conditioning.h analysis/fvanalysis.h
    analysis/harmonicanalysis.h analysis/pitchanalysis.h analysis/spectralanalysis.h
    io/fdoubleio.h io/wavm1616io.h numeric/dft.h numeric/matvect.h numeric/polynom.h
    numeric/windowing.h)
set(installed)
while(headers)
    list(POP_FRONT headers header)
    if(NOT header IN_LIST installed)
        list(APPEND installed ${header})
        get_filename_component(folder ${header} DIRECTORY)
        install(FILES src/${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/nalveo/${folder}
            COMPONENT development)
        set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS src/${header})
        file(STRINGS src/${header} included REGEX "^#include \"")
        list(TRANSFORM included REPLACE "#include \"(.*)\".*" "\\1")
        list(APPEND headers ${included})
    endif()
endwhile()
# Paths from where the file is, so that the tree can be moved.
file(RELATIVE_PATH pctoprefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(${packaging}/nalveo.pc.in nalveo.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/nalveo.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# The Python package, which loads libnalveo.so: where Debian's python3 looks below /usr.
install(DIRECTORY python/nalveo DESTINATION lib/python3/dist-packages COMPONENT python
    FILES_MATCHING PATTERN "*.py" PATTERN "py.typed" PATTERN "__pycache__" EXCLUDE)

set(cmakefolder ${CMAKE_INSTALL_LIBDIR}/cmake/nalveo)
install(EXPORT nalveo NAMESPACE nalveo:: FILE nalveoConfig.cmake
    DESTINATION ${cmakefolder} COMPONENT development)
write_basic_package_version_file(nalveoConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/nalveoConfigVersion.cmake
    DESTINATION ${cmakefolder} COMPONENT development)
# A package's archive carries no notes of the compiler: they serve nobody and differ by compiler.
install(CODE "
    if(CMAKE_INSTALL_DO_STRIP)
        execute_process(COMMAND \"${CMAKE_STRIP}\" --strip-debug --enable-deterministic-archives
            --remove-section=.comment --remove-section=.note
            \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/libnalveo.a\"
            COMMAND_ERROR_IS_FATAL ANY)
    endif()" COMPONENT development)

# Licence and changelog go with each package.
set(packageof_program nalveo16)
set(packageof_tools nalveo16-tools)
set(packageof_library libnalveo0)
set(packageof_development libnalveo-dev)
set(packageof_python python3-nalveo)
foreach(component program tools library development python)
    set(package ${CMAKE_INSTALL_DATADIR}/doc/${packageof_${component}})
    install(FILES ${packaging}/copyright ${CMAKE_CURRENT_BINARY_DIR}/compressed/changelog.gz
        ${CMAKE_CURRENT_BINARY_DIR}/compressed/changelog.Debian.gz
        DESTINATION ${package} COMPONENT ${component})
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PACKAGE_CONTACT "The nalveo16 authors <nalveo16@authors.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "speech analyser for vocoders and statistical synthesis")
set(CPACK_COMPONENTS_ALL program tools library development python)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)

set(CPACK_DEBIAN_PROGRAM_PACKAGE_NAME nalveo16)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SUGGESTS nalveo16-tools)
set(CPACK_DEBIAN_PROGRAM_DESCRIPTION
    "Reads mono 16 kHz 16-bit WAV files and writes, for every frame, the logarithm
of the fundamental frequency, a mel-warped cepstrum of the spectral envelope
(by one of five methods) and the maximum voiced frequency, as headerless
sequences of 32-bit floats.
.
With it comes nalveo16-synth, which makes speech of them again.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME nalveo16-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_TOOLS_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS
    "python3:any (>= 3.9), python3-numpy, python3-nalveo (>= ${PROJECT_VERSION}), nalveo16")
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS "parallel, python3-matplotlib, sox")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION
    "Tools around the speech analyser nalveo16: nalveo16-plot draws the results over
the spectrogram, nalveo16-corpus analyses whole collections of recordings, and
nalveo16-compare tells how far two analyses are apart.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libnalveo-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libnalveo0 (= ${PROJECT_VERSION}-1)")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION
    "What programs are built with that analyse speech in sample buffers of their
own: f0 and its refinement, maximum voiced frequency, mel-warped cepstra.
.
The C header nalveo.h, the headers of the C++ routines, the static library, a
CMake package and a pkg-config file.")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libnalveo0)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SHLIBDEPS ON)
set(debian ${CMAKE_CURRENT_BINARY_DIR}/debian-control)
file(WRITE ${debian}/shlibs "libnalveo 0 libnalveo0 (>= ${PROJECT_VERSION})\n")
file(WRITE ${debian}/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${debian}/shlibs ${debian}/triggers)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION
    "Analyses speech in sample buffers for vocoders and statistical synthesis: f0,
mel-warped cepstra of the spectral envelope by one of five methods, and the
maximum voiced frequency, at sample rates from 8000 to 96000 Hz, by a C
interface that keeps no state.")

set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-nalveo)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
    "python3:any (>= 3.9), python3-numpy, libnalveo0 (>= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA ${packaging}/postinst ${packaging}/prerm)
set(CPACK_DEBIAN_PYTHON_DESCRIPTION
    "Analyses speech in numpy arrays for vocoders and statistical synthesis: f0,
mel-warped cepstra of the spectral envelope by one of five methods, and the
maximum voiced frequency. Reads and writes the files of nalveo16.")
include(CPack)
