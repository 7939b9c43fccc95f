# Inherit from the makefile of a device whose service has the AIDL interface, in the place of
# ../kelda.mk, whose two lines for BoardConfig.mk hold here, too:
#   $(call inherit-product, vendor/kelda/upmix/packaging/android/aidl/kelda-aidl.mk)
PRODUCT_PACKAGES += libkelupmix-aidl libupmix-lib
