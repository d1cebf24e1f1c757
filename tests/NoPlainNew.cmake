# The library's operator new returns null on failure, which only the nothrow
# form of a new-expression (or a class operator new declared noexcept) may do
# without undefined behaviour. This check keeps plain `new T` out of Src/.
add_test(NAME NoPlainNewInLibrary
         COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/no_plain_new.sh ${PROJECT_SOURCE_DIR}/Src)
