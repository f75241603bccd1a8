# Mail of job output: composition and checks (no network, usable by the shell too), and the
# SMTP mailer that the daemon runs.
find_package(CURL REQUIRED)

add_library(schedd_mail_message STATIC ${CMAKE_CURRENT_LIST_DIR}/mail_message.cc)
target_include_directories(schedd_mail_message PUBLIC ${CMAKE_CURRENT_LIST_DIR})

add_library(schedd_mail STATIC ${CMAKE_CURRENT_LIST_DIR}/mailer.cc)
target_include_directories(schedd_mail PUBLIC ${CMAKE_CURRENT_LIST_DIR} ${PROJECT_SOURCE_DIR}/include)
target_link_libraries(schedd_mail PUBLIC schedd_mail_message PkgConfig::GLIB Threads::Threads
                      PRIVATE CURL::libcurl schedcli schedplat)
