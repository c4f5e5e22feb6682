#include "tests/metadata/XmlDocuments.hpp"

#include <string_view>

namespace test {

namespace {

std::string toUtf16Bytes(std::u16string_view text, bool isBigEndian) {
    std::string bytes;
    for (const char16_t unit : text) {
        const char high = static_cast<char>(unit >> 8);
        const char low = static_cast<char>(unit & 0xFF);
        bytes += {isBigEndian ? high : low, isBigEndian ? low : high};
    }
    return bytes;
}

std::string repeated(const std::string& text, std::size_t count) {
    std::string result;
    for (std::size_t i = 0; i < count; ++i)
        result += text;
    return result;
}

std::string nested(std::size_t depth) {
    return repeated("<a b='c'>", depth) + repeated("</a>", depth);
}

std::string withType(const std::string& declarations, const std::string& content) {
    return "<!DOCTYPE r [" + declarations + "]>" + content;
}

const std::string entities =
    "<!ENTITY e 'an &#38;#38; &quot;entity&quot;'><!ENTITY f '&e; twice &e;'><!ENTITY t '<in a=\"&e;\"/>text'>"
    "<!ENTITY none ''><!ENTITY x SYSTEM '/etc/hostname'>";

/// Something of everything, well-formed, with `name` as a key.
std::string mixture(const std::string& name) {
    return "<?xml version='1.0'?>" +
           withType(entities +
                        "<!ENTITY % p '<!ENTITY q \"by parameter\">'> %p; "
                        "<!ELEMENT r ANY><!ATTLIST r d CDATA 'default &e;' t NMTOKENS #IMPLIED i ID #IMPLIED>",
                    "<!-- c --><?p i?><r a='&e;|&f;|&q;|&amp;&lt;&#38;&#60;&#65;&#xE4;&#10;' t=' x  y '"
                    " i='id'>text &e; &t;<![CDATA[<no/>]]><p:c xmlns:p='u' xmlns='' p:k='v' k='w'>"
                    "<?pi?></p:c>\n<d\n\t" +
                        name + " = \"1\r\n2\t3\"\n/>&x;</r><!-- end -->\n");
}

struct Encoding {
    const char* name;
    std::string good;
    std::string bad;  ///< empty if there is nothing bad in it
};

std::vector<std::string> inAllEncodings() {
    const std::vector<Encoding> encodings = {{"UTF-8", "\xC3\xA4\xF0\x9F\x98\x80", "\xC3 "},
                                             {"utf-8", "\xC3\xA4", "\xED\xA0\x80"},
                                             {"UTF-8", "plain", "\xE4"},
                                             {"ISO-8859-1", "\xE4\x81", ""},
                                             {"US-ASCII", "a", "\xE4"},
                                             {"windows-1252", "\xE4", "\x81"},
                                             {"KOI8-R", "\xC1", ""},
                                             {"Shift_JIS", "\x83\x65", "\x83 "},
                                             {"EUC-JP", "\xA5\xC6", "\xA5 "},
                                             {"GB18030", "\xC4\xE3", "\xC4 "},
                                             {"ISO-2022-JP", "\x1B$B%F\x1B(B", "\x1B$Z"},
                                             {"no such encoding", "", "a"}};
    std::vector<std::string> documents;
    for (const Encoding& encoding : encodings) {
        for (const std::string& text : {encoding.good, encoding.bad}) {
            if (!text.empty())
                documents.push_back(std::string("<?xml version='1.0' encoding='") + encoding.name +
                                    "'?><r><a k='v'/><b v='" + text + "' w='1'/></r>");
        }
    }
    for (const bool isBigEndian : {false, true}) {
        for (const std::u16string text : {u"\uFEFF<r a='\u00E4\U0001F600'/>", u"<?xml version='1.0'?><r/>",
                                          u"\uFEFF<?xml version='1.0' encoding='UTF-16'?><r b='&amp;'><s/></r>",
                                          u"\uFEFF<r><a k='v'/><b v='\xD83D' w='1'/></r>"})
            documents.push_back(toUtf16Bytes(text, isBigEndian));
    }
    documents.insert(documents.end(), {"\xEF\xBB\xBF<r a='\xC3\xA4'/>", "\xEF\xBB\xBF<r a='\xE4'/>", "\xEF\xBB<r/>",
                                       "<?xml version='1.0' encoding='UTF-16'?><r/>",
                                       // Where the first bytes have gone by already.
                                       "<?xml version='1.0' encoding='windows-1252'?><r><a k='v'/>" +
                                           std::string(10'000, ' ') + "<b v='\x81'/></r>"});
    return documents;
}

std::vector<std::string> truncations() {
    const std::string whole = mixture("e");
    std::vector<std::string> documents;
    for (std::size_t size = 0; size <= whole.size(); ++size)
        documents.push_back(whole.substr(0, size));
    return documents;
}

/// What lies over the borders of the blocks in which files are read.
std::vector<std::string> overBorders() {
    std::vector<std::string> documents;
    for (const std::size_t border : {512U, 4'096U, 32'768U, 65'536U}) {
        for (std::size_t before = 1; before < 34; ++before) {
            const std::string head = "<r>" + std::string(border - 3 - before, ' ');
            documents.push_back(head + "<s a='\xC3\xA4&amp;\xF0\x9F\x98\x80'>&lt;</s></r>");
            documents.push_back(head + "<s a='\xC3\xA4&amp;\xF0\x9F\x98'>&lt;</s></r>");
            documents.push_back("<!DOCTYPE r>" + head + "<s a='\xC3\xA4&amp;\xF0\x9F\x98\x80'/></r>");
        }
    }
    return documents;
}

std::vector<XmlGroup> makeGroups() {
    const std::string million(1'000'000, 'x');
    const std::string badKey = " \xC8\xA0='a letter since the fifth edition'";
    const std::string badValue = " bad='&#xD7FF;&#x10C00;&#x10001;'";
    return {
        {"no document",
         {"", " ", "x", "<", "<r", "<r>", "<r></s>", "<r/><r/>", "<r/>x", "x<r/>", " <?xml version='1.0'?><r/>"},
         0},
        {"plain",
         {"<r/>",
          "<r></r>",
          " <r/>",
          "<r a='1' b=\"2\"/>",
          "<r\n a\n=\t'1'\r\n/>\n",
          "<r a='a\tb\nc\r\nd'/>",
          "<r a='&amp;&lt;&gt;&quot;&apos;'/>",
          "<r a='&#38;#38; &#x26;amp;'/>",
          "<r a='&#1;'/>",
          "<r a='\x01'/>",
          "<r a='&#xFFFE;'/>",
          "<r a='&#xD800;'/>",
          "<r a='&#x10001;'/>",
          "<r a='&#x10FC00;' b='&#x10000;'/>",
          "<r a='<'/>",
          "<r a='&'/>",
          "<r a='&no;'/>",
          "<r>&no;</r>",
          "<r a=1/>",
          "<r a/>",
          "<r a='1'b='2'/>",
          "<r>&amp;<![CDATA[<no/>]]></r>",
          "<r>]]></r>",
          "<!--c--><r><!--c--></r><!--c-->",
          "<r><!-- -- --></r>",
          "<?p i?><r><?p?></r><?p?>",
          "<r><?xml version='1.0'?></r>",
          "<\xC3\xA4 \xC3\xB6='\xC3\xBC'/>",
          "<r><s/><s><t a=''/></s>text<s/></r>"},
         14},
        {"declarations",
         {"<?xml version='1.0'?><r/>", "<?xml version='1.0' standalone='yes'?><r/>",
          "<?xml version='1.0' encoding='UTF-8' standalone='no'?><r/>", "<?xml version='1.1'?><r/>",
          "<?xml version='2.0'?><r/>", "<?xml encoding='UTF-8'?><r/>", "<?xml version='1.0' encoding=''?><r/>",
          "<?xml version='1.0' standalone='yes'?><r>&no;</r>", "<?xml?><r/>", "<?XML version='1.0'?><r/>",
          "<?xml version='1.0' standalone='yes' encoding='UTF-8'?><r/>"},
         4},
        {"document types",
         {"<!DOCTYPE r><r/>", "<!DOCTYPE r><s/>", "<!DOCTYPE r SYSTEM 'no.dtd'><r>&no;</r>",
          "<!DOCTYPE r SYSTEM 'no.dtd'><r a='&no;'/>", "<!DOCTYPE r PUBLIC '-//x' 'no.dtd' [<!ELEMENT r ANY>]><r/>",
          "<!DOCTYPE d [<!ATTLIST d k CDATA 'v'>]><d/>", "<!DOCTYPE d [<!ATTLIST d k CDATA 'v'>]><d k='w'><d/></d>",
          withType("<!ATTLIST r a CDATA #FIXED 'f' b (c|d) 'c' e NMTOKENS #IMPLIED>", "<r e=' x  y '><r a='f'/></r>"),
          withType("<!ATTLIST r xmlns CDATA 'u' xmlns:p CDATA 'v' p:a CDATA 'w'>", "<r/>"),
          withType("<!ATTLIST r id ID #IMPLIED>", "<r id='a'><r id='a'/></r>"), withType("<!ELEMENT r", "<r/>"),
          withType("<!ATTLIST r a CDATA 'v' a CDATA 'w'>", "<r/>"), withType("<!ATTLIST r a CDATA '&no;'>", "<r/>"),
          withType("<!ATTLIST r a CDATA '<'>", "<r/>"), withType("<!NOTATION n SYSTEM 'u'>", "<r/>"),
          "<!DOCTYPE r [<!ENTITY a 'b'", "<r/><!DOCTYPE r>", "<!DOCTYPE r><!DOCTYPE r><r/>"},
         12},
        {"entities",
         {withType(entities, "<r a='&e;' b='&f;&none;&#38;'/>"), withType(entities, "<r>&t;&t;&x;&e;&none;</r>"),
          withType(entities, "<r a='&none;'/>"), withType(entities, "<r a='&t;'/>"), withType(entities, "<r a='&x;'/>"),
          withType(entities, "<r a='&E;'/>"), withType("<!ENTITY lt '&#38;#60;'>", "<r a='&lt;'/>"),
          withType("<!ENTITY a 'b'><!ENTITY a 'c'>", "<r a='&a;'/>"), withType("<!ENTITY a '<b>'>", "<r>&a;</r>"),
          withType("<!ENTITY a '&no;'>", "<r a='&a;'/>"), withType("<!ENTITY a '&no;'>", "<r/>"),
          withType("<!ENTITY % p SYSTEM 'no'>%p;<!ENTITY a '&no;'>", "<r a='x&a;y'/>"),
          withType("<!ENTITY a '&#xD;&#xA;&#9; '>", "<r a='|&a;|'/>"),
          withType("<!ENTITY a 'b'>", "<r xmlns='http://x/?&a;&amp;'/>"),
          withType("<!ENTITY % q \"<!ENTITY a 'b'>\">%q;", "<r a='&a;'/>"), withType("<!ENTITY a 'b' NDATA c>", "<r/>"),
          withType("<!ENTITY a '&#x10001;'>", "<r k='&a;'/>")},
         9,
         1},
        {"entities without an end",
         {withType("<!ENTITY a '&a;'>", "<r k='&a;'/>"), withType("<!ENTITY a '&b;'><!ENTITY b '&a;'>", "<r k='&a;'/>"),
          withType("<!ENTITY a '&b;'><!ENTITY b '&a;'>", "<r>&a;</r>"),
          withType("<!ENTITY a '&b;'><!ENTITY b '&a;'>", "<r><s k='v'/><s k='&b;'/></r>")},
         0},
        {"encodings", inAllEncodings(), 18, 2},
        {"namespaces",
         {"<a:b/>",
          "<a:b c:d='e'/>",
          "<a:b:c/>",
          "<:a/>",
          "<r :a='1' b:='2'/>",
          "<r xmlns:p=''/>",
          "<r xmlns=''/>",
          "<r xmlns='u'><s/></r>",
          "<r xmlns:xml='http://www.w3.org/XML/1998/namespace'/>",
          "<r xmlns:xml='u'/>",
          "<r xmlns:xmlns='u'/>",
          "<r xmlns:p='http://www.w3.org/2000/xmlns/'/>",
          "<p:r xmlns:p='u' p:a='1' a='2'/>",
          "<r xml:lang='de' xml:space='preserve'> <s xml:lang='en'/> </r>",
          "<r xmlns:a='a b'/>",
          "<r xmlns='&amp;'/>",
          "<r xmlns='http://x/?a=1&amp;b=2' a='&amp;'/>",
          "<r xmlns:p='a&#38;b&lt;'/>",
          "<r xmlns:p='u'><p:s p:k='1'><p:t xmlns:p='v' p:k='2'/></p:s></r>",
          "<r xml:id='a'><s xml:id='a'/></r>"},
         20},
        {"duplicates",
         {"<r a='1' a='2'/>", "<r a='1' b='2' a='3'/>", "<r xmlns='u' xmlns='v'/>", "<r xmlns:a='1' xmlns:a='2'/>",
          "<r xmlns:a='u' xmlns:b='u' a:k='1' b:k='2'/>", "<r xmlns:a='u' xmlns:b='v' a:k='1' b:k='2'/>",
          "<r xmlns:z='u' xmlns:b='u'><e z:a='1' b:a='2' b:a='3'/></r>",
          "<r xmlns:z='u' xmlns:b='u'><e z:a='1' b:a='2'/></r>", "<r a:k='1' a:k='2'/>", "<r a:k='1' b:k='2'/>",
          "<r k='1' K='2'/>"},
         5,
         1},
        {"order of errors",
         {"<r a='1'" + badKey + badValue + "/>", "<r" + badValue + badKey + "/>", "<r" + badKey + "/>",
          "<r" + badValue + "/>", "<r><s/><s" + badKey + "/><s" + badValue + "/></r>", "<r" + badKey + "/><",
          "<r" + badKey + ">" + std::string(100, ' ') + "</s>", "<r" + badKey + ">" + std::string(600, ' ') + "</s>",
          "<r" + badValue + ">" + std::string(40'000, ' ') + "</s>", "<r" + badKey + " x='&no;'/>",
          withType(entities, "<r" + badKey + " a='&e;'/>"), withType(entities, "<r a='&e;'" + badValue + badKey + "/>"),
          "<r xmlns:p='u'" + badKey + " p:a='1' p:a='2'/>", "<r><s a='1'/>" + std::string(2'000, ' ') + "</q>"},
         0,
         2},
        {"limits",
         {nested(100), nested(200), nested(201), nested(256), nested(257), nested(258), nested(300),
          "<r>" + std::string(9'999'000, 'x') + "</r>", "<r>" + std::string(10'000'100, 'x') + "</r>",
          "<r>" + std::string(11'000'000, '\n') + "<s/></r>", "<r a='" + std::string(9'900'000, 'x') + "'/>",
          "<r a='" + std::string(10'100'000, 'x') + "'/>", "<r a='" + million + "' b='" + million + "'/>",
          "<r><!--" + std::string(10'100'000, 'x') + "--></r>", "<" + std::string(49'000, 'n') + "/>",
          "<" + std::string(51'000, 'n') + "/>"},
         8,
         1},
        {"truncations", truncations(), 3},
        {"over the borders of blocks", overBorders(), 264},
    };
}

}  // namespace

const std::vector<XmlGroup>& allXmlGroups() {
    static const std::vector<XmlGroup> groups = makeGroups();
    return groups;
}

}  // namespace test
