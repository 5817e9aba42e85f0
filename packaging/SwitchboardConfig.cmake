# The client library of the switchboard, as the target Switchboard::client.
include(${CMAKE_CURRENT_LIST_DIR}/SwitchboardTargets.cmake)
