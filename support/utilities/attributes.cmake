# attributes.cmake: the driver-settings part of the utility library: the data-model ids,
# attribute lists and their reader, the stored form of the settings (reader and writer) and the
# process-wide caches. Included by this folder's CMakeLists.txt.
target_sources(zorunutilities PRIVATE
    attributebytes.cpp
    attributebytesreader.cpp
    persistentattributes.cpp
    globalcaches.cpp)
fu_public_headers(datamodelids.h attributebytes.h attributebytesreader.h persistentattributes.h
                  globalcaches.h)
# Included by datamodelids.h, not a header of its own: installed beside it, not in the umbrella.
install(FILES datamodelids_pagesizes.inc
        DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/filterutilities/support/utilities")
