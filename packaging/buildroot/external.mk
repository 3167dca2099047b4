include $(sort $(wildcard $(BR2_EXTERNAL_QVE_PATH)/package/*/*.mk))
