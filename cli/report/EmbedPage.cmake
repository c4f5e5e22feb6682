# cmake -DFOLDER=... -DOUTPUT=... -P EmbedPage.cmake
# Puts the page together from the files in FOLDER, and writes it to OUTPUT as C++ (see ReportPage.hpp). The page's
# Content-Security-Policy lets nothing run but this very script, so it holds the hashes of the style and the script.

# The SHA-256 of `text` in Base64, as https://www.w3.org/TR/CSP3/#grammardef-hash-source wants it.
function(hash_of text result)
    set(digits ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/)
    string(SHA256 hexadecimal "${text}")
    set(base64 "")
    # 32 bytes are 11 groups of 3, the last of which lacks a byte.
    foreach(group RANGE 10)
        math(EXPR start "${group} * 6")
        string(SUBSTRING "${hexadecimal}0000" ${start} 6 bytes)
        foreach(shift 18 12 6 0)
            math(EXPR digit "(0x${bytes} >> ${shift}) & 63")
            string(SUBSTRING ${digits} ${digit} 1 digit)
            string(APPEND base64 ${digit})
        endforeach()
    endforeach()
    string(SUBSTRING ${base64} 0 43 base64)
    set(${result} "sha256-${base64}=" PARENT_SCOPE)
endfunction()

file(READ "${FOLDER}/report.html" page)
file(READ "${FOLDER}/report.css" style)
set(script "\n")
foreach(name model tree details picture report)
    file(READ "${FOLDER}/${name}.js" part)
    string(APPEND script "${part}")
endforeach()

hash_of("${style}" styleHash)
hash_of("${script}" scriptHash)
foreach(name styleHash scriptHash style script)
    string(REPLACE "@${name}@" "${${name}}" page "${page}")
endforeach()

string(FIND "${page}" "@data@" dataStart)
string(SUBSTRING "${page}" 0 ${dataStart} begin)
math(EXPR dataEnd "${dataStart} + 6")
string(SUBSTRING "${page}" ${dataEnd} -1 end)
file(WRITE "${OUTPUT}" "#include \"cli/report/ReportPage.hpp\"

namespace cli {

const std::string_view reportPageBegin = R\"~page~(${begin})~page~\";
const std::string_view reportPageEnd = R\"~page~(${end})~page~\";

}  // namespace cli
")
