# Mail of job output: composition and checks (no network, usable by the shell too), and the
# SMTP mailer that the daemon runs.
find_package(CURL REQUIRED)

add_library(schedd_mail_message STATIC ${CMAKE_CURRENT_LIST_DIR}/mail_message.cc)
target_include_directories(schedd_mail_message PUBLIC ${CMAKE_CURRENT_LIST_DIR})

# The daemon's syslog lines, shared by the mailer and the rest of the daemon.
add_library(schedd_syslog STATIC ${PROJECT_SOURCE_DIR}/daemon/core/syslog_lines.cc)
target_include_directories(schedd_syslog PUBLIC ${PROJECT_SOURCE_DIR}/daemon ${PROJECT_SOURCE_DIR}/include)
target_link_libraries(schedd_syslog PUBLIC schedcli schedplat)

add_library(schedd_mail STATIC ${CMAKE_CURRENT_LIST_DIR}/mailer.cc)
target_include_directories(schedd_mail PUBLIC ${CMAKE_CURRENT_LIST_DIR} ${PROJECT_SOURCE_DIR}/include)
target_link_libraries(schedd_mail PUBLIC schedd_mail_message PkgConfig::GLIB Threads::Threads
                      PRIVATE CURL::libcurl schedcli schedplat schedd_syslog)
