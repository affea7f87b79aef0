# HDF5 for the forms .H and .C, as the target rdbHdf5. The C interface of the serial library is what is needed.

find_package(HDF5 REQUIRED COMPONENTS C)

# of all that a static HDF5 would need, a shared one brings the most itself
set(hdf5Libraries ${HDF5_C_LIBRARIES})
list(FILTER hdf5Libraries INCLUDE REGEX "hdf5[^/]*\\.so|hdf5[^/]*\\.dylib")
if(NOT hdf5Libraries)
    set(hdf5Libraries ${HDF5_C_LIBRARIES})
endif()

add_library(rdbHdf5 INTERFACE)
target_include_directories(rdbHdf5 SYSTEM INTERFACE ${HDF5_C_INCLUDE_DIRS})
target_link_libraries(rdbHdf5 INTERFACE ${hdf5Libraries})
message(STATUS "HDF5 ${HDF5_VERSION}: ${hdf5Libraries}")
