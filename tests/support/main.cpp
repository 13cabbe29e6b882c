// Runs the cases in an empty directory, because the library writes its log files to the working
// directory, and takes the directory away afterwards.
#include <gtest/gtest.h>

#include <filesystem>
#include <iostream>

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);

    std::string directory = (std::filesystem::temp_directory_path() / "vexo-test-XXXXXX").string();
    if (mkdtemp(directory.data()) == nullptr) {
        std::cerr << "cannot make a working directory: " << directory << '\n';
        return 1;
    }
    std::filesystem::current_path(directory);
    const int result = RUN_ALL_TESTS();
    std::filesystem::current_path("/");
    std::filesystem::remove_all(directory);
    return result;
}
