vq_add_library(messaging INTERFACE PUBLIC vq::protobuf)
