// Shared by the stand-ins for mf.dll and mfsensorgroup.dll: the journal the tests read back, the script
// they write, and an IMFAttributes implementation that forwards to a real attribute store.
#pragma once

#include <windows.h>
#include <mfapi.h>
#include <mfidl.h>

#include <atomic>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace standin {

// Read at every call: a test may point a variable elsewhere between two calls.
std::optional<std::wstring> EnvironmentVariable(const wchar_t* name);
// The whole file, or nothing when it can't be opened.
std::optional<std::string> ReadWholeFile(const std::wstring& path);

std::string Utf8(std::wstring_view text);
// A null pointer prints as (null).
std::string Utf8OrNull(const wchar_t* text);
std::wstring Utf16(std::string_view text);
std::string HresultText(HRESULT hr);
std::string GuidText(REFGUID guid);

// Appends one line to the file named by VQTEST_JOURNAL; nothing when the variable is unset.
void Journal(const std::string& line);

struct Directive {
    std::string keyword;
    std::string argument; // everything after the first blank, verbatim
    std::string line;
};

// The directives of the UTF-8 file named by the variable; nullopt when the variable or the file is missing.
std::optional<std::vector<Directive>> ReadScript(const wchar_t* variable);

// Blank-separated HRESULTs such as "0x800706BA 0 -2147023174"; false on the first token that is not one.
bool ParseHresults(std::string_view text, std::vector<HRESULT>& results);

// A script the stand-in cannot understand is a mistake in the test: say so in the journal.
void JournalScriptError(const Directive& directive);

// IUnknown plus the 30 IMFAttributes methods over a store from MFCreateAttributes. Interface is
// IMFAttributes or an interface derived from it; the derived class adds that interface's own methods.
template <class Interface> class AttributesForwarder : public Interface {
  public:
    AttributesForwarder(const AttributesForwarder&) = delete;
    AttributesForwarder& operator=(const AttributesForwarder&) = delete;

    // Must succeed before the object is handed out.
    HRESULT CreateStore() { return MFCreateAttributes(&store_, 4); }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override {
        if (object == nullptr) {
            return E_POINTER;
        }
        if (IsEqualIID(riid, __uuidof(IUnknown)) || IsEqualIID(riid, __uuidof(IMFAttributes)) ||
            IsEqualIID(riid, __uuidof(Interface))) {
            *object = static_cast<Interface*>(this);
            AddRef();
            return S_OK;
        }
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --references_;
        if (left == 0) {
            OnFinalRelease();
            delete this;
        }
        return left;
    }

    HRESULT STDMETHODCALLTYPE GetItem(REFGUID key, PROPVARIANT* value) override {
        return store_->GetItem(key, value);
    }
    HRESULT STDMETHODCALLTYPE GetItemType(REFGUID key, MF_ATTRIBUTE_TYPE* type) override {
        return store_->GetItemType(key, type);
    }
    HRESULT STDMETHODCALLTYPE CompareItem(REFGUID key, REFPROPVARIANT value, BOOL* result) override {
        return store_->CompareItem(key, value, result);
    }
    HRESULT STDMETHODCALLTYPE Compare(IMFAttributes* theirs, MF_ATTRIBUTES_MATCH_TYPE type,
                                      BOOL* result) override {
        return store_->Compare(theirs, type, result);
    }
    HRESULT STDMETHODCALLTYPE GetUINT32(REFGUID key, UINT32* value) override {
        return store_->GetUINT32(key, value);
    }
    HRESULT STDMETHODCALLTYPE GetUINT64(REFGUID key, UINT64* value) override {
        return store_->GetUINT64(key, value);
    }
    HRESULT STDMETHODCALLTYPE GetDouble(REFGUID key, double* value) override {
        return store_->GetDouble(key, value);
    }
    HRESULT STDMETHODCALLTYPE GetGUID(REFGUID key, GUID* value) override {
        return store_->GetGUID(key, value);
    }
    HRESULT STDMETHODCALLTYPE GetStringLength(REFGUID key, UINT32* length) override {
        return store_->GetStringLength(key, length);
    }
    HRESULT STDMETHODCALLTYPE GetString(REFGUID key, LPWSTR value, UINT32 size, UINT32* length) override {
        return store_->GetString(key, value, size, length);
    }
    HRESULT STDMETHODCALLTYPE GetAllocatedString(REFGUID key, LPWSTR* value, UINT32* length) override {
        return store_->GetAllocatedString(key, value, length);
    }
    HRESULT STDMETHODCALLTYPE GetBlobSize(REFGUID key, UINT32* size) override {
        return store_->GetBlobSize(key, size);
    }
    HRESULT STDMETHODCALLTYPE GetBlob(REFGUID key, UINT8* buffer, UINT32 bufferSize,
                                      UINT32* blobSize) override {
        return store_->GetBlob(key, buffer, bufferSize, blobSize);
    }
    HRESULT STDMETHODCALLTYPE GetAllocatedBlob(REFGUID key, UINT8** buffer, UINT32* size) override {
        return store_->GetAllocatedBlob(key, buffer, size);
    }
    HRESULT STDMETHODCALLTYPE GetUnknown(REFGUID key, REFIID riid, LPVOID* object) override {
        return store_->GetUnknown(key, riid, object);
    }
    HRESULT STDMETHODCALLTYPE SetItem(REFGUID key, REFPROPVARIANT value) override {
        return store_->SetItem(key, value);
    }
    HRESULT STDMETHODCALLTYPE DeleteItem(REFGUID key) override { return store_->DeleteItem(key); }
    HRESULT STDMETHODCALLTYPE DeleteAllItems() override { return store_->DeleteAllItems(); }
    HRESULT STDMETHODCALLTYPE SetUINT32(REFGUID key, UINT32 value) override {
        return store_->SetUINT32(key, value);
    }
    HRESULT STDMETHODCALLTYPE SetUINT64(REFGUID key, UINT64 value) override {
        return store_->SetUINT64(key, value);
    }
    HRESULT STDMETHODCALLTYPE SetDouble(REFGUID key, double value) override {
        return store_->SetDouble(key, value);
    }
    HRESULT STDMETHODCALLTYPE SetGUID(REFGUID key, REFGUID value) override {
        return store_->SetGUID(key, value);
    }
    HRESULT STDMETHODCALLTYPE SetString(REFGUID key, LPCWSTR value) override {
        return store_->SetString(key, value);
    }
    HRESULT STDMETHODCALLTYPE SetBlob(REFGUID key, const UINT8* buffer, UINT32 size) override {
        return store_->SetBlob(key, buffer, size);
    }
    HRESULT STDMETHODCALLTYPE SetUnknown(REFGUID key, IUnknown* object) override {
        return store_->SetUnknown(key, object);
    }
    HRESULT STDMETHODCALLTYPE LockStore() override { return store_->LockStore(); }
    HRESULT STDMETHODCALLTYPE UnlockStore() override { return store_->UnlockStore(); }
    HRESULT STDMETHODCALLTYPE GetCount(UINT32* count) override { return store_->GetCount(count); }
    HRESULT STDMETHODCALLTYPE GetItemByIndex(UINT32 index, GUID* key, PROPVARIANT* value) override {
        return store_->GetItemByIndex(index, key, value);
    }
    HRESULT STDMETHODCALLTYPE CopyAllItems(IMFAttributes* destination) override {
        return store_->CopyAllItems(destination);
    }

  protected:
    AttributesForwarder() = default;
    virtual ~AttributesForwarder() {
        if (store_ != nullptr) {
            store_->Release();
        }
    }
    // Runs once, when the last reference goes and before the object is deleted.
    virtual void OnFinalRelease() {}

    IMFAttributes* store_ = nullptr;

  private:
    std::atomic<ULONG> references_{1};
};

} // namespace standin
