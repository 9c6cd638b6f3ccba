// Info objects: published properties by name, XML round trips in both modes, Clone and
// Assign, lists read through ItemClass, the registry and the manager's file.
#include <unistd.h>

#include <gtest/gtest.h>

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <filesystem>
#include <fstream>

#include "csInfoCore.h"

using namespace tmi;

namespace {

enum TSampleKind : uint8_t { skNone, skText, skNumber };

class TcsSample : public TcsInfo {
    TCS_PERSISTENT(TcsSample)
public:
    explicit TcsSample(TcsComponent* aOwner = nullptr) : TcsInfo(aOwner), fChildren(this) {}
    std::string Title;
    int64_t Count = 0;
    double Ratio = 0;
    bool Active = false;
    TSampleKind Kind = skNone;
    TSampleKind DataType() const { return fDataType; }
    void SetDataType(TSampleKind v) { fDataType = v; }
    TcsInfoList* Children() const { return const_cast<TcsInfoList*>(&fChildren); }

private:
    TSampleKind fDataType = skNone;
    TcsInfoList fChildren;
};

class TcsLight : public TcsInfoLowData {
    TCS_PERSISTENT(TcsLight)
public:
    using TcsInfoLowData::TcsInfoLowData;
    double Value = 0;
};

class TcsOtherSample : public TcsInfo {
    TCS_PERSISTENT(TcsOtherSample)
public:
    using TcsInfo::TcsInfo;
};

// An object with a table of named values among its published properties.
class TcsWithParams : public TcsInfo {
    TCS_PERSISTENT(TcsWithParams)
public:
    using TcsInfo::TcsInfo;
    TcsNamedVariantsList* Params() const { return const_cast<TcsNamedVariantsList*>(&fParams); }

private:
    TcsNamedVariantsList fParams;
};

TCS_PROPERTIES(TcsSample, TcsInfo,
               Field("Title", &TcsSample::Title),
               Field("Count", &TcsSample::Count),
               Field("Ratio", &TcsSample::Ratio),
               Field("Active", &TcsSample::Active),
               Field("Kind", &TcsSample::Kind),
               EnumProperty("DataType", &TcsSample::DataType, &TcsSample::SetDataType, {"skNone", "skText", "skNumber"}),
               ObjectProperty("Children", &TcsSample::Children))
TCS_PROPERTIES(TcsLight, TcsInfoLowData, Field("Value", &TcsLight::Value))
TCS_PROPERTIES(TcsOtherSample, TcsInfo)
TCS_PROPERTIES(TcsWithParams, TcsInfo, ObjectProperty("Params", &TcsWithParams::Params))

struct Registered {
    Registered() {
        GlobalInfoManager().RegisterInfoClass(InfoClassOf<TcsSample>(), "{PKG}");
        GlobalInfoManager().RegisterInfoClass(InfoClassOf<TcsLight>(), "{PKG}");
    }
};
const Registered kRegistered;

}  // namespace

TEST(InfoProperties, ListedInDeclarationOrderAfterTheBase) {
    TcsSample s;
    TcsSupportPropertyObject props(s);
    std::vector<std::string> names;
    for (int i = 0; i < props.GetPropertyCount(); ++i) names.push_back(props.GetProperty(i)->fName);
    EXPECT_EQ(names, (std::vector<std::string>{"Name", "Tag", "GUID", "ClassGUID", "InternalClassName", "Modify", "Title",
                                               "Count", "Ratio", "Active", "Kind", "DataType", "Children"}));
    EXPECT_EQ(props.PropertyType("ratio"), TcsPropertyKind::Float);
    EXPECT_EQ(props.PropertyTypeName("Count"), "Int64");
    EXPECT_TRUE(props.IsEnumProperty("Kind"));
    EXPECT_TRUE(props.IsObjectProperty("Children"));
    EXPECT_EQ(props.GetObjectProperty("Children"), s.Children());
    EXPECT_FALSE(props.PropertyExist("Nothing"));
    EXPECT_TRUE(props.GetPropertyValueByName("Nothing").IsEmpty());
    props.SetPropertyValueByName("Nothing", TcsVariant(1));  // nothing happens
    props.SetPropertyValueByName("count", TcsVariant("42"));
    EXPECT_EQ(s.Count, 42);
    props.SetPropertyValueByName("Active", TcsVariant(true));
    EXPECT_EQ(props.GetPropertyValueByName("Active"), TcsVariant(true));
    EXPECT_EQ(props.GetPropertyValueByName("Kind").Type(), TcsVarType::Integer);
    EXPECT_EQ(s.ClassGUID(), "TcsSample");  // falls back to the class name
    EXPECT_EQ(s.GetStorageName(), "Sample");
    TcsNamedVariantsList state;
    props.SaveState(state);
    props.ClearProperties();
    EXPECT_EQ(s.Count, 0);
    props.LoadState(state);
    EXPECT_EQ(s.Count, 42);
}

TEST(InfoXML, ModeZeroLeavesZerosOutAndModeOneWritesElements) {
    TcsSample s;
    s.Title = "Участок \"1\"";
    s.Ratio = 0.5;
    s.Kind = skNumber;
    s.SetDataType(skText);
    const std::string xml = s.XML();
    EXPECT_NE(xml.find("Title=\"Участок &quot;1&quot;\""), std::string::npos) << xml;
    EXPECT_NE(xml.find("Ratio=\"0.5\""), std::string::npos);
    EXPECT_NE(xml.find("Kind=\"2\""), std::string::npos);
    EXPECT_NE(xml.find("DataType=\"skText\""), std::string::npos);  // by name
    EXPECT_EQ(xml.find("Count="), std::string::npos);   // zero
    EXPECT_EQ(xml.find("Active="), std::string::npos);  // false
    EXPECT_NE(xml.find("GUID=\"{"), std::string::npos);
    EXPECT_NE(xml.find("<Children/>"), std::string::npos);

    TcsSupportPropertyObject props(s);
    const std::string elements = props.WriteStringXML("Sample", 1);
    EXPECT_NE(elements.find("<Count>0</Count>"), std::string::npos) << elements;
    TcsSample back;
    back.Count = 9;
    ASSERT_TRUE(TcsSupportPropertyObject(back).ReadStringXML(elements, 1));
    EXPECT_EQ(back.Count, 0);
    EXPECT_EQ(back.Title, s.Title);
    EXPECT_EQ(back.DataType(), skText);
}

TEST(InfoXML, LowDataLeavesOutGUIDAndItsKin) {
    TcsLight light;
    light.Value = 1.25;
    light.SetTag(5);
    const std::string xml = light.XML();
    EXPECT_EQ(xml.find("GUID"), std::string::npos) << xml;
    EXPECT_EQ(xml.find("InternalClassName"), std::string::npos);
    EXPECT_EQ(xml.find("Tag"), std::string::npos);
    EXPECT_NE(xml.find("<Light Value=\"1.25\"/>"), std::string::npos);
}

TEST(InfoXML, ListsRoundTripThroughItemClass) {
    TcsSample parent;
    parent.Title = "root";
    auto* child = static_cast<TcsSample*>(parent.Children()->GetNew(InfoClassOf<TcsSample>()));
    child->Title = "child";
    child->Count = 3;
    auto* light = static_cast<TcsLight*>(parent.Children()->GetNew(InfoClassOf<TcsLight>()));
    light->Value = 7;
    const std::string xml = parent.XML();

    TcsSample back;
    // An element no class reads is skipped without a word; comments are no items.
    std::string withUnknown = xml;
    withUnknown.replace(withUnknown.find("<Children>") + 10, 0, "<!-- note --><Unknown A=\"1\"/>");
    ASSERT_TRUE(TcsSupportPropertyObject(back).ReadStringXML(withUnknown, 0));
    ASSERT_EQ(back.Children()->Count(), 2);
    auto* c0 = dynamic_cast<TcsSample*>(back.Children()->Items(0));
    ASSERT_NE(c0, nullptr);
    EXPECT_EQ(c0->Title, "child");
    EXPECT_EQ(c0->Count, 3);
    EXPECT_EQ(c0->Owner(), &back);  // created with the parent info as owner
    EXPECT_EQ(c0->GUID(), child->GUID());
    EXPECT_EQ(dynamic_cast<TcsLight*>(back.Children()->Items(1))->Value, 7);
}

TEST(InfoAssign, CloneHasAnotherGUIDAndEqualProperties) {
    TcsSample s;
    s.Title = "t";
    s.Count = 5;
    s.Ratio = 0;  // a zero survives Assign, which goes through elements
    std::unique_ptr<TcsInfo> copy = s.Clone();
    auto* c = dynamic_cast<TcsSample*>(copy.get());
    ASSERT_NE(c, nullptr);
    EXPECT_NE(c->GUID(), s.GUID());
    EXPECT_EQ(c->Title, "t");
    EXPECT_EQ(c->Count, 5);
    TcsSample target;
    target.Count = 99;
    target.Assign(s);
    EXPECT_EQ(target.Count, 5);
    TcsOtherSample other;
    try {
        other.Assign(s);
        FAIL();
    } catch (const Exception& e) {
        EXPECT_STREQ(e.what(), "Cannot assign a TcsSample to a TcsOtherSample");
    }
}

TEST(InfoRegistry, ByNameInternalNameAndDoubles) {
    TcsInfoManager manager;
    int announced = 0;
    TcsMessageHandler* h = GlobalMessageManager().RegisterProcedure([&](const IcsMessage& m) {
        if (auto* info = dynamic_cast<TcsInfoMessage*>(m.get()); info && info->MessageType == 1) ++announced;
    }, &announced);
    manager.RegisterInfoClass(InfoClassOf<TcsSample>(), "{A}");
    manager.RegisterInfoClass(InfoClassOf<TcsSample>(), "{B}");
    EXPECT_EQ(manager.Count(), 1);  // a double is ignored
    EXPECT_EQ(announced, 2);
    EXPECT_EQ(manager.ClassByInternalName("tcssample"), InfoClassOf<TcsSample>());
    EXPECT_EQ(manager.ClassByName("TcsSample"), InfoClassOf<TcsSample>());
    EXPECT_EQ(manager.ClassByName("Nope"), nullptr);
    EXPECT_EQ(manager.GetPackageGUID(InfoClassOf<TcsSample>()), "{A}");
    manager.UnRegisterInfoClass(InfoClassOf<TcsSample>());
    EXPECT_EQ(manager.Count(), 0);
    GlobalMessageManager().UnregisterProcedure(&announced);
    (void)h;
}

TEST(InfoManager, FileRoundTripAndMissingFile) {
    const auto path = (std::filesystem::temp_directory_path() / ("tmi" + std::to_string(::getpid()) + "_manager.xml")).string();
    TcsManager m;
    m.SetName("main");
    m.CustomSettings = {"a=1", "Путь=/tmp"};
    m.WriteToFile(path);
    TcsManager back;
    back.ReadFromFile(path);
    EXPECT_EQ(back.Name(), "main");
    EXPECT_EQ(back.CustomSettings, m.CustomSettings);
    std::filesystem::remove(path);
    try {
        back.ReadFromFile(path);
        FAIL();
    } catch (const Exception& e) {
        EXPECT_EQ(std::string(e.what()), "Не найден файл: " + path);
    }
    // The manager is a component: its file holds its published properties and the settings,
    // no GUID and no class names, and it is the same at every write.
    m.WriteToFile(path);
    std::ifstream in(path);
    const std::string first((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(first.find("GUID"), std::string::npos) << first;
    EXPECT_EQ(first.find("InternalClassName"), std::string::npos) << first;
    EXPECT_NE(first.find("<Manager Name=\"main\">"), std::string::npos) << first;
    EXPECT_NE(first.find("<CustomSettings>"), std::string::npos) << first;
    m.WriteToFile(path);
    std::ifstream again(path);
    EXPECT_EQ(std::string((std::istreambuf_iterator<char>(again)), std::istreambuf_iterator<char>()), first);
    std::filesystem::remove(path);
    EXPECT_FALSE(m.Initialized());
    m.Initialize();
    EXPECT_TRUE(m.Initialized());
    m.Finalize();
    EXPECT_FALSE(m.Initialized());
}

TEST(InfoLists, OwnershipAndNamedVariants) {
    TcsInfoList owning;
    owning.Add(std::make_unique<TcsLight>());
    owning.Add(std::make_unique<TcsLight>());
    std::unique_ptr<TcsPersistent> taken = owning.DeleteNoDestroy(0);
    EXPECT_NE(taken, nullptr);
    EXPECT_EQ(owning.Count(), 1);
    EXPECT_THROW((void)owning.Get(5), std::exception);
    TcsLight outside;
    TcsInfoList refs(nullptr, false);
    refs.AddReference(&outside);
    refs.Clear();  // does not free what it does not own

    TcsNamedVariantsList v;
    v.Add("A", TcsVariant(1));
    v.Add("a", TcsVariant(2));
    v.Append("B", TcsVariant("x"));
    EXPECT_EQ(v.Count(), 2);
    EXPECT_EQ(v.Values("A"), TcsVariant(2));
    EXPECT_TRUE(v.Values("none").IsEmpty());
    EXPECT_THROW(v.Delete(7), EcsNamedVariantError);
    TcsNamedVariantsList w;
    w.Assign(v);
    EXPECT_TRUE(w.Equals(v));
    w.Exchange(0, 1);
    EXPECT_FALSE(w.Equals(v));
}

// A table of named values stored as a published object property: "NamedVariants" with its
// items, read back with their types.
TEST(InfoLists, NamedVariantsAreStored) {
    TcsWithParams a;
    a.Params()->Add("Имя", TcsVariant(std::string("Участок \"1\"")));
    a.Params()->Add("Count", TcsVariant(int64_t{42}));
    a.Params()->Add("Ratio", TcsVariant(0.125));
    a.Params()->Add("On", TcsVariant(true));
    a.Params()->Add("When", TcsVariant(EncodeDateTime(2024, 5, 6, 7, 8, 9)));
    a.Params()->Add("Nothing", TcsVariant());
    const std::string xml = a.XML();
    EXPECT_NE(xml.find("<NamedVariants>"), std::string::npos) << xml;
    EXPECT_NE(xml.find("<Item Name=\"Имя\" Type=\"String\" Value=\"Участок &quot;1&quot;\"/>"), std::string::npos) << xml;
    TcsWithParams b;
    ASSERT_TRUE(TcsSupportPropertyObject(b).ReadStringXML(xml));
    EXPECT_TRUE(b.Params()->Equals(*a.Params())) << b.XML();
    EXPECT_EQ(b.Params()->Variants(1).Type(), TcsVarType::Integer);
    EXPECT_EQ(b.Params()->Variants(4).Type(), TcsVarType::DateTime);
    // Clone copies the table through the same form.
    const std::unique_ptr<TcsInfo> copy = a.Clone();
    EXPECT_TRUE(static_cast<TcsWithParams&>(*copy).Params()->Equals(*a.Params()));
}
