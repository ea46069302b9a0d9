include $(sort $(wildcard $(BR2_EXTERNAL_OXFILECACHE_PATH)/package/*/*.mk))
