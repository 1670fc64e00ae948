# `make package`: one Debian package of everything `cmake --install` installs,
# laid out under /usr. The program finds its editor relative to itself, so the
# prefix the build was configured with does not matter here.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vorna)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Vorna developer <dev@vorna.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "HTML page editor that never loses a version")
set(CPACK_PACKAGE_DESCRIPTION [[Vorna opens a folder of HTML pages, or one page in its folder, in a
web-based editor. Every save compares the page with the version that was
edited; when the disk moved on, both versions are kept. Every version that
leaves a page is kept in a recovery store outside the folder.]])
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION editors)
# The libraries the program links decide the dependencies, as dpkg-shlibdeps
# reads them from the binary.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
include(CPack)
