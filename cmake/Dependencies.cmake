# Every third-party library, found once. docs/architecture.md lists the source that wraps each of them.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(SQLite3 REQUIRED)
find_package(ICU REQUIRED COMPONENTS uc i18n)
find_package(sdbus-c++ REQUIRED)
find_package(OpenSSL REQUIRED COMPONENTS Crypto)
pkg_check_modules(GIO REQUIRED IMPORTED_TARGET gio-2.0 gio-unix-2.0)
