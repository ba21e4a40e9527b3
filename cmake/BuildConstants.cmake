# Every fact of the build that is not logic: whom the program asks, who made it. Each can be set with -D at configure time.
set(SKYLET_ENDPOINTS "https://www.google.com/generate_204;https://cp.cloudflare.com/generate_204"
    CACHE STRING "HTTPS addresses that answer an empty 204, in the order in which they are probed")
set(SKYLET_SPEEDTEST_HOST "speed.cloudflare.com" CACHE STRING "HTTPS host that serves /__down and /__up")
set(SKYLET_WEBSITE "https://brimlake.example" CACHE STRING "The maker's web site")
set(SKYLET_WEBSITE_NAME "brimlake.example" CACHE STRING "The web site as it is shown")
set(SKYLET_COPYRIGHT "© 2026 Brimlake. All rights reserved." CACHE STRING "The copyright line, in English")

list(JOIN SKYLET_ENDPOINTS "\", \"" SKYLET_ENDPOINTS_LITERAL)
string(REPLACE "All rights reserved." "כל הזכויות שמורות." SKYLET_COPYRIGHT_HEBREW "${SKYLET_COPYRIGHT}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/BuildConstants.h.in ${PROJECT_BINARY_DIR}/generated/BuildConstants.h @ONLY)
