# The Debian package (make deb): the program, velmctl, the desktop entry, icons, manual pages,
# completion, AppStream metadata and the package's own documents, under /usr.
include(GNUInstallDirs)

if(NOT APPLE)
    install(FILES ${PROJECT_SOURCE_DIR}/data/app.velm.Server.metainfo.xml
            DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
    # Debian wants the copyright and a compressed changelog in the package's documentation.
    set(VELM_CHANGELOG_GZ ${PROJECT_BINARY_DIR}/changelog.gz)
    add_custom_command(OUTPUT ${VELM_CHANGELOG_GZ}
        COMMAND gzip -n -9 -c ${PROJECT_SOURCE_DIR}/data/debian/changelog > ${VELM_CHANGELOG_GZ}
        DEPENDS ${PROJECT_SOURCE_DIR}/data/debian/changelog VERBATIM)
    add_custom_target(velm_changelog ALL DEPENDS ${VELM_CHANGELOG_GZ})
    install(FILES ${PROJECT_SOURCE_DIR}/data/debian/copyright ${VELM_CHANGELOG_GZ}
            DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/velm-server)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME velm-server)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR Velm)
set(CPACK_PACKAGE_CONTACT "Velm <packages@velm.app>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "control this computer from the Velm app on your phone")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "Velm Server lives in the tray and lets a phone or tablet that was paired once\n\
switch applications, send shortcuts, use menus and text fields, browse files,\n\
change volume and brightness, control media and lock the screen, over an\n\
encrypted connection on the local network. velmctl does the same from the\n\
command line.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE https://velm.app)
# Libraries from what the binaries link, and the sound server's, which the program loads when
# a sound server may be there; the rest is what the program talks to at run time.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libpulse0, libpulse-mainloop-glib0")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "avahi-daemon, at-spi2-core, qt5-image-formats-plugins")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "pulseaudio | pipewire-pulse")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
