# SPDX-License-Identifier: Apache-2.0
# The libraries of headers that the demo and the tools use.
if(CMAKE_CROSSCOMPILING)
    # CLI11 is headers only, so that the build machine's do; by a link of their own, for the other
    # headers beside them are not for the target.
    find_path(CLI11_HEADERS CLI/CLI.hpp PATHS /usr/include REQUIRED
              NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
    file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/cli11)
    file(CREATE_LINK ${CLI11_HEADERS}/CLI ${PROJECT_BINARY_DIR}/cli11/CLI SYMBOLIC)
    add_library(CLI11::CLI11 INTERFACE IMPORTED)
    target_include_directories(CLI11::CLI11 INTERFACE ${PROJECT_BINARY_DIR}/cli11)
else()
    find_package(CLI11 CONFIG REQUIRED)
endif()

if(CMAKE_CROSSCOMPILING)
    # Headers only, like CLI11: the build machine's, by a link of their own.
    find_path(NLOHMANN_JSON_HEADERS nlohmann/json.hpp PATHS /usr/include REQUIRED
              NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
    file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/json)
    file(CREATE_LINK ${NLOHMANN_JSON_HEADERS}/nlohmann
         ${PROJECT_BINARY_DIR}/json/nlohmann SYMBOLIC)
    add_library(nlohmann_json::nlohmann_json INTERFACE IMPORTED)
    target_include_directories(nlohmann_json::nlohmann_json INTERFACE
        ${PROJECT_BINARY_DIR}/json)
else()
    find_package(nlohmann_json REQUIRED)
endif()
