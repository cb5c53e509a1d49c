# Installation and the Debian package.
#
# The program, its companion import_db and its Access reader live side by side in lib/tabulon/,
# because "Execute Text File" starts import_db from the program's own folder and the conversion
# looks for the reader beside the program; bin/tabulon is a link to the program. The demo database generator, the desktop entry, the icons and the AppStream
# metainfo go where desktops look for them.
include(GNUInstallDirs)
# The package and the install need only the programs, which package.sh builds first; the tests
# and benchmarks stay out of it.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)

set(TABULON_PRIVATE_DIR "lib/tabulon")
install(TARGETS tabulon import_db tabulon-accessreader RUNTIME DESTINATION ${TABULON_PRIVATE_DIR})
install(TARGETS tabulon-demodb RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(CODE "
    set(bindir \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}\")
    file(MAKE_DIRECTORY \"\${bindir}\")
    file(CREATE_LINK \"../${TABULON_PRIVATE_DIR}/tabulon\" \"\${bindir}/tabulon\" SYMBOLIC)
    message(STATUS \"Installing: \${bindir}/tabulon -> ../${TABULON_PRIVATE_DIR}/tabulon\")
")

install(FILES ${PROJECT_SOURCE_DIR}/data/tabulon.desktop
        DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES ${PROJECT_SOURCE_DIR}/data/com.corvane.Tabulon.metainfo.xml
        DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/data/icons/hicolor
        DESTINATION ${CMAKE_INSTALL_DATADIR}/icons)

# cpack -G DEB in the build folder makes tabulon_<version>_<arch>.deb; its library
# dependencies come from dpkg-shlibdeps.
set(CPACK_GENERATOR "DEB")
set(CPACK_PACKAGE_NAME "tabulon")
set(CPACK_PACKAGE_VENDOR "Corvane")
set(CPACK_PACKAGE_CONTACT "Corvane <tabulon@corvane.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "administration tool for the Orvita client-records database")
set(CPACK_PACKAGE_DESCRIPTION "Tabulon browses and edits the tables of the Orvita database, searches
and replaces values, checks and repairs tables, backs up and restores tables or one client's
rows, converts Access databases and ODBC sources, and keeps safety copies of what it changes.")
set(CPACK_PACKAGING_INSTALL_PREFIX "/usr")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION "database")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The MDB Tools ODBC driver lets the conversion read Access files through a data source too.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "odbc-mdbtools")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "mariadb-server")
set(CPACK_STRIP_FILES ON)
include(CPack)
