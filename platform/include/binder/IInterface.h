#pragma once

#include <memory>
#include <utility>

#include <binder/Binder.h>

namespace android {

/** The base of every interface that is called through binder. */
class IInterface : public virtual RefBase {
public:
    /** The object behind an interface; null for a null interface. */
    static sp<IBinder> asBinder(const IInterface* iface);
    static sp<IBinder> asBinder(const sp<IInterface>& iface);

protected:
    IInterface() = default;
    ~IInterface() override = default;

    virtual IBinder* onAsBinder() = 0;

private:
    IInterface(const IInterface&) = delete;
    IInterface& operator=(const IInterface&) = delete;
};

/** The interface of `obj`: the object itself when it lives in this process, else a proxy. */
template <typename INTERFACE>
inline sp<INTERFACE> interface_cast(const sp<IBinder>& obj) {
    return INTERFACE::asInterface(obj);
}

/** Base of the side that implements INTERFACE. */
template <typename INTERFACE>
class BnInterface : public INTERFACE, public BBinder {
public:
    sp<IInterface> queryLocalInterface(const String16& name) override {
        if (name == INTERFACE::descriptor) {
            return sp<IInterface>(this);
        }
        return nullptr;
    }
    const String16& getInterfaceDescriptor() const override {
        return INTERFACE::getInterfaceDescriptor();
    }

protected:
    IBinder* onAsBinder() override { return this; }
};

/** Base of the side that calls INTERFACE. */
template <typename INTERFACE>
class BpInterface : public INTERFACE, public BpRefBase {
public:
    explicit BpInterface(const sp<IBinder>& remote) : BpRefBase(remote) {}

protected:
    IBinder* onAsBinder() override { return remote(); }
};

}  // namespace android

/** Declares what every interface class has; for use inside the class I##INTERFACE. */
#define DECLARE_META_INTERFACE(INTERFACE)                                                         \
public:                                                                                           \
    static const ::android::String16 descriptor;                                                  \
    static ::android::sp<I##INTERFACE> asInterface(const ::android::sp<::android::IBinder>& obj); \
    virtual const ::android::String16& getInterfaceDescriptor() const;                            \
    I##INTERFACE();                                                                               \
    ~I##INTERFACE() override;                                                                     \
    static bool setDefaultImpl(std::unique_ptr<I##INTERFACE> impl);                               \
    static const std::unique_ptr<I##INTERFACE>& getDefaultImpl();                                 \
                                                                                                  \
private:                                                                                          \
    static std::unique_ptr<I##INTERFACE> default_impl;                                            \
                                                                                                  \
public:

/** Defines what DECLARE_META_INTERFACE declares; in the namespace of the interface. */
#define IMPLEMENT_META_INTERFACE(INTERFACE, NAME)                                        \
    const ::android::String16 I##INTERFACE::descriptor(NAME);                            \
    const ::android::String16& I##INTERFACE::getInterfaceDescriptor() const {            \
        return I##INTERFACE::descriptor;                                                 \
    }                                                                                    \
    ::android::sp<I##INTERFACE> I##INTERFACE::asInterface(                               \
        const ::android::sp<::android::IBinder>& obj) {                                  \
        if (obj == nullptr) {                                                            \
            return nullptr;                                                              \
        }                                                                                \
        ::android::sp<::android::IInterface> local =                                     \
            obj->queryLocalInterface(I##INTERFACE::descriptor);                          \
        if (local != nullptr) {                                                          \
            return ::android::sp<I##INTERFACE>(static_cast<I##INTERFACE*>(local.get())); \
        }                                                                                \
        return ::android::sp<I##INTERFACE>(new Bp##INTERFACE(obj));                      \
    }                                                                                    \
    std::unique_ptr<I##INTERFACE> I##INTERFACE::default_impl;                            \
    bool I##INTERFACE::setDefaultImpl(std::unique_ptr<I##INTERFACE> impl) {              \
        if (impl == nullptr) {                                                           \
            return false;                                                                \
        }                                                                                \
        default_impl = std::move(impl);                                                  \
        return true;                                                                     \
    }                                                                                    \
    const std::unique_ptr<I##INTERFACE>& I##INTERFACE::getDefaultImpl() {                \
        return default_impl;                                                             \
    }                                                                                    \
    I##INTERFACE::I##INTERFACE() {}                                                      \
    I##INTERFACE::~I##INTERFACE() {}
