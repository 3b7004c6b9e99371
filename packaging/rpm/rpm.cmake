# The package for systems with RPM, by cpack: one for daemon and manager. It is built in the tests of the packages, and its list
# of files is compared; nobody has installed it on such a system yet.
set(CPACK_GENERATOR RPM)
set(CPACK_PACKAGE_CONTACT "qelcd maintainers <maintainers@qelcd.example>")
set(CPACK_PACKAGE_FILE_NAME ${PROJECT_NAME}-${PROJECT_VERSION})
# The units have the paths of the programs in them, so they must be made for the final prefix.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_RPM_PACKAGE_LICENSE MIT)
set(CPACK_RPM_PACKAGE_SUMMARY "agent daemon of a storage protection system")
set(CPACK_RPM_PACKAGE_DESCRIPTION "The daemon reports the disks of a host to a management server, mirrors disks in use to
other disks or volumes, and takes snapshots of the mirrors, on demand and on schedule.")
set(CPACK_RPM_PACKAGE_REQUIRES "kmod, procps-ng, systemd, util-linux")
set(CPACK_RPM_PACKAGE_SUGGESTS "iscsi-initiator-utils, lvm2")
set(CPACK_RPM_POST_INSTALL_SCRIPT_FILE ${CMAKE_CURRENT_LIST_DIR}/post.sh)
set(CPACK_RPM_PRE_UNINSTALL_SCRIPT_FILE ${CMAKE_CURRENT_LIST_DIR}/preun.sh)
# Folders of the system, not ours.
set(CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION /usr/sbin /usr/lib/systemd /usr/lib/systemd/system /usr/share/doc
  /usr/share/man /usr/share/man/man1 /usr/share/man/man5 /usr/share/man/man7 /usr/share/man/man8
  /usr/share/bash-completion /usr/share/bash-completion/completions /usr/share/fish
  /usr/share/fish/vendor_completions.d /usr/share/zsh /usr/share/zsh/vendor-completions)
include(CPack)
