# What an application knows of the threads that run its devices: headers only, so that the device library can
# use it from below.
vq_add_library(sparse_device_mule_base INTERFACE)
