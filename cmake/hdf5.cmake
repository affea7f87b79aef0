# HDF5 for the forms .H and .C, as the target rdbHdf5. The C interface of the serial library is what is needed.
#
# A process holds one HDF5: the plugin must use that of ParaView, and ParaView's packages use the system's.

find_package(HDF5 REQUIRED COMPONENTS C)

add_library(rdbHdf5 INTERFACE)
target_include_directories(rdbHdf5 SYSTEM INTERFACE ${HDF5_C_INCLUDE_DIRS})
target_link_libraries(rdbHdf5 INTERFACE ${HDF5_C_LIBRARIES})
