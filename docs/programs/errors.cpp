#include <clastool/clastool.h>

#include <iostream>

int main()
{
    // [catch]
    ktClassifierTool tool;
    ktClassifierResult result;
    try {
        tool.run(ktFeaturePattern({1.0, 2.0}, {}), result);
    } catch (const ktClassifierDefs::NotTrained&) {
        std::cout << "train first\n";  // one error that this place can do something about
    } catch (const ktException& error) {
        std::cout << "error 0x" << std::hex << error.errorNumber() << ": " << error.message() << "\n";
    }
    // [catch]
}
