# Inherit from the device's makefile:
#   $(call inherit-product, vendor/kelda/upmix/packaging/android/kelda.mk)
# and add these two lines to its BoardConfig.mk:
#   TARGET_VENDOR_PROP += vendor/kelda/upmix/packaging/android/kelda.prop
#   BOARD_VENDOR_SEPOLICY_DIRS += vendor/kelda/upmix/packaging/android/sepolicy
PRODUCT_PACKAGES += libkelupmix libupmix-lib
