"""The standard's assertions by their identifiers: which rules check each, or why it is not the edge node's to keep.

An identifier with several rules was seen as often as the rule among them that was seen least.
"""

CHECKED = {
    # Topics and ids
    "topic-structure": "topic_structure",
    "topic-structure-namespace-a": "namespace",
    "topic-structure-namespace-valid-group-id": "valid_id group",
    "topic-structure-namespace-valid-edge-node-id": "valid_id node",
    "topic-structure-namespace-valid-device-id": "valid_id device",
    "topic-structure-namespace-unique-edge-node-descriptor": "unique_descriptor",
    "topic-structure-namespace-unique-device-id": "one_device",
    "topic-structure-namespace-device-id-associated-message-types": "device_in_topic",
    "topic-structure-namespace-device-id-non-associated-message-types": "no_device_in_topic",
    "case-sensitivity-sparkplug-ids": "distinct_ids_in_lower_case",
    "case-sensitivity-metric-names": "names_differ_in_lower_case",
    "topics-nbirth-topic": "topic_of NBIRTH",
    "topics-ndata-topic": "topic_of NDATA",
    "topics-ndeath-topic": "topic_of NDEATH",
    "topics-dbirth-topic": "topic_of DBIRTH",
    "topics-ddata-topic": "topic_of DDATA",
    "topics-ddeath-topic": "topic_of DDEATH",
    "message-flow-edge-node-birth-publish-nbirth-topic": "topic_of NBIRTH",
    "message-flow-device-birth-publish-dbirth-topic": "topic_of DBIRTH",
    "message-flow-device-birth-publish-dbirth-match-edge-node-topic": "topic_of DBIRTH",
    "payloads-nbirth-edge-node-descriptor": "unique_descriptor",
    # QoS and retain
    "topics-nbirth-mqtt": "qos_0 NBIRTH; not_retained NBIRTH",
    "topics-ndata-mqtt": "qos_0 NDATA; not_retained NDATA",
    "topics-dbirth-mqtt": "qos_0 DBIRTH; not_retained DBIRTH",
    "topics-ddata-mqtt": "qos_0 DDATA; not_retained DDATA",
    "topics-ddeath-mqtt": "qos_0 DDEATH; not_retained DDEATH",
    "payloads-nbirth-qos": "qos_0 NBIRTH",
    "payloads-ndata-qos": "qos_0 NDATA",
    "payloads-dbirth-qos": "qos_0 DBIRTH",
    "payloads-ddata-qos": "qos_0 DDATA",
    "payloads-nbirth-retain": "not_retained NBIRTH",
    "payloads-ndata-retain": "not_retained NDATA",
    "payloads-dbirth-retain": "not_retained DBIRTH",
    "payloads-ddata-retain": "not_retained DDATA",
    "message-flow-edge-node-birth-publish-nbirth-qos": "qos_0 NBIRTH",
    "message-flow-edge-node-birth-publish-nbirth-retained": "not_retained NBIRTH",
    "message-flow-device-birth-publish-dbirth-qos": "qos_0 DBIRTH",
    "message-flow-device-birth-publish-dbirth-retained": "not_retained DBIRTH",
    # The connection and its will
    "message-flow-edge-node-birth-publish-connect": "session_before_births",
    "message-flow-edge-node-birth-publish-will-message": "will_present",
    "message-flow-edge-node-birth-publish-will-message-topic": "will_topic",
    "message-flow-edge-node-birth-publish-will-message-payload": "will_decodes",
    "message-flow-edge-node-birth-publish-will-message-payload-bdSeq": "will_bd_seq; bd_seq_goes_on",
    "message-flow-edge-node-birth-publish-will-message-qos": "will_qos_1",
    "message-flow-edge-node-birth-publish-will-message-will-retained": "will_not_retained",
    "payloads-ndeath-will-message": "will_present; will_topic",
    "payloads-ndeath-will-message-qos": "will_qos_1",
    "payloads-ndeath-will-message-retain": "will_not_retained",
    "payloads-ndeath-will-message-publisher": "death_before_stop",
    "payloads-ndeath-will-message-publisher-disconnect-mqtt311": "death_before_goodbye 4",
    "payloads-ndeath-will-message-publisher-disconnect-mqtt50": "goodbye_publishes_will",
    "operational-behavior-edge-node-intentional-disconnect-ndeath": "death_before_stop",
    "operational-behavior-edge-node-intentional-disconnect-packet": "goodbye_is_last",
    "operational-behavior-primary-application-state-with-multiple-servers-single-server": "one_connection_at_a_time",
    # NDEATH and bdSeq
    "topics-ndeath-payload": "death_holds_bd_seq_alone",
    "topics-ndeath-seq": "death_without_seq",
    "payloads-ndeath-seq": "death_without_seq",
    "payloads-ndeath-bdseq": "bd_seq_is_the_wills NBIRTH NDEATH",
    "topics-nbirth-bdseq-included": "bd_seq_in_nbirth",
    "topics-nbirth-bdseq-matching": "bd_seq_is_the_wills NBIRTH",
    "topics-nbirth-bdseq-increment": "bd_seq_goes_on",
    "payloads-nbirth-bdseq": "bd_seq_in_nbirth",
    "payloads-nbirth-bdseq-repeat": "bd_seq_is_the_wills NBIRTH",
    "message-flow-edge-node-birth-publish-nbirth-payload-bdSeq": "bd_seq_in_nbirth; bd_seq_is_the_wills NBIRTH",
    # Subscriptions and the primary host
    "message-flow-edge-node-ncmd-subscribe": "subscribes_node_commands",
    "message-flow-device-dcmd-subscribe": "subscribes_device_commands",
    "message-flow-edge-node-birth-publish-phid-wait": "births_wait_for_host",
    "message-flow-edge-node-birth-publish-phid-wait-id": "other_hosts_do_not_count",
    "message-flow-edge-node-birth-publish-phid-wait-online": "offline_does_not_count",
    "message-flow-edge-node-birth-publish-phid-wait-timestamp": "old_states_do_not_count",
    "message-flow-edge-node-birth-publish-phid-offline": "host_loss_ends_session",
    "operational-behavior-edge-node-birth-sequence-wait": "births_wait_for_host",
    "operational-behavior-edge-node-termination-host-offline": "host_loss_ends_session",
    "operational-behavior-edge-node-termination-host-offline-reconnect": "host_loss_is_followed_by_connect",
    "operational-behavior-edge-node-termination-host-offline-timestamp": "old_host_loss_is_ignored",
    "operational-behavior-primary-application-state-with-multiple-servers-state-subs": "subscribes_host_state",
    "operational-behavior-primary-application-state-with-multiple-servers-walk": "host_loss_is_followed_by_connect",
    # Births
    "topics-nbirth-timestamp": "has_timestamp NBIRTH",
    "topics-nbirth-metric-reqs": "birth_tells_of_all NBIRTH",
    "topics-nbirth-metrics": "birth_metrics_are_whole NBIRTH",
    "topics-nbirth-rebirth-metric": "rebirth_metric; rebirth_is_boolean; rebirth_is_false",
    "topics-dbirth-timestamp": "has_timestamp DBIRTH",
    "topics-dbirth-metric-reqs": "birth_tells_of_all DBIRTH",
    "topics-dbirth-metrics": "birth_metrics_are_whole DBIRTH",
    "payloads-nbirth-timestamp": "has_timestamp NBIRTH",
    "payloads-nbirth-rebirth-req": "rebirth_metric; rebirth_is_false",
    "payloads-dbirth-timestamp": "has_timestamp DBIRTH",
    "payloads-dbirth-order": "dbirth_follows_nbirth; data_behind_births DDATA",
    "message-flow-edge-node-birth-publish-nbirth-payload": "decodes NBIRTH",
    "message-flow-device-birth-publish-dbirth-payload": "decodes DBIRTH",
    "message-flow-device-birth-publish-nbirth-wait": "nbirth_before_dbirth",
    "operational-behavior-data-publish-nbirth": "birth_tells_of_all NBIRTH",
    "operational-behavior-data-publish-nbirth-values": "value_or_null NBIRTH",
    "operational-behavior-data-publish-nbirth-order": "times_in_order NBIRTH NDATA",
    "operational-behavior-data-publish-dbirth": "birth_tells_of_all DBIRTH",
    "operational-behavior-data-publish-dbirth-values": "value_or_null DBIRTH",
    "operational-behavior-data-publish-dbirth-order": "times_in_order DBIRTH DDATA",
    "operational-behavior-data-commands-rebirth-name": "rebirth_metric",
    "operational-behavior-data-commands-rebirth-name-aliases": "rebirth_has_no_alias",
    "operational-behavior-data-commands-rebirth-datatype": "rebirth_is_boolean",
    "operational-behavior-data-commands-rebirth-value": "rebirth_is_false",
    "operational-behavior-data-commands-rebirth-action-1": "rebirth_stops_data",
    "operational-behavior-data-commands-rebirth-action-2": "rebirth_answered",
    "operational-behavior-data-commands-rebirth-action-3": "rebirth_keeps_bd_seq",
    # Sequence numbers
    "topics-nbirth-seq-num": "sequence_starts_at_zero",
    "topics-ndata-seq-num": "has_sequence NDATA; sequence_goes_on NDATA",
    "topics-dbirth-seq": "has_sequence DBIRTH; sequence_goes_on DBIRTH",
    "topics-ddata-seq-num": "has_sequence DDATA; sequence_goes_on DDATA",
    "topics-ddeath-seq-num": "has_sequence DDEATH; sequence_goes_on DDEATH",
    "payloads-nbirth-seq": "sequence_in_range NBIRTH",
    "payloads-dbirth-seq": "has_sequence DBIRTH",
    "payloads-dbirth-seq-inc": "sequence_goes_on DBIRTH; sequence_in_range DBIRTH",
    "payloads-ndata-seq": "has_sequence NDATA",
    "payloads-ndata-seq-inc": "sequence_goes_on NDATA; sequence_in_range NDATA",
    "payloads-ddata-seq": "has_sequence DDATA",
    "payloads-ddata-seq-inc": "sequence_goes_on DDATA; sequence_in_range DDATA",
    "payloads-ddeath-seq": "has_sequence DDEATH",
    "payloads-ddeath-seq-inc": "sequence_goes_on DDEATH; sequence_in_range DDEATH",
    "payloads-ddeath-seq-number": "has_sequence DDEATH",
    "payloads-sequence-num-always-included": "has_sequence",
    "payloads-sequence-num-req-nbirth": "sequence_in_range NBIRTH",
    "payloads-sequence-num-incrementing": "sequence_goes_on",
    "message-flow-edge-node-birth-publish-nbirth-payload-seq": "sequence_in_range NBIRTH",
    "message-flow-device-birth-publish-dbirth-payload-seq": "sequence_in_range DBIRTH; sequence_goes_on DBIRTH",
    # Data and deaths of devices
    "topics-ndata-timestamp": "has_timestamp NDATA",
    "topics-ndata-payload": "data_names_metrics NDATA",
    "topics-ddata-timestamp": "has_timestamp DDATA",
    "topics-ddata-payload": "data_names_metrics DDATA",
    "payloads-ndata-timestamp": "has_timestamp NDATA",
    "payloads-ndata-order": "data_behind_births NDATA; dbirth_follows_nbirth",
    "payloads-ddata-timestamp": "has_timestamp DDATA",
    "payloads-ddata-order": "data_behind_births DDATA",
    "payloads-ddeath-timestamp": "has_timestamp DDEATH",
    "operational-behavior-device-ddeath": "device_loss_is_told",
    "operational-behavior-data-publish-nbirth-change": "data_changes_something NDATA",
    "operational-behavior-data-publish-dbirth-change": "data_changes_something DDATA",
    # Metrics
    "payloads-timestamp-in-UTC": "timestamp_is_utc",
    "payloads-name-requirement": "named_or_alias",
    "payloads-alias-uniqueness": "alias_is_unique",
    "payloads-alias-birth-requirement": "births_give_aliases",
    "payloads-alias-data-cmd-requirement": "alias_alone_in_data",
    "payloads-name-birth-data-requirement": "metric_has_time",
    "payloads-metric-timestamp-in-UTC": "metric_time_is_utc",
    "payloads-metric-datatype-value-type": "datatype_is_uint32",
    "payloads-metric-datatype-value": "datatype_is_known; value_fits_datatype",
    "payloads-metric-datatype-req": "datatype_in_births",
    "payloads-metric-datatype-not-req": "no_datatype_in_data",
    "payloads-propertyset-keys-array-size": "properties_are_paired",
    "payloads-propertyset-values-array-size": "properties_are_paired",
    "payloads-metric-propertyvalue-type-type": "property_type_is_uint32",
    "payloads-metric-propertyvalue-type-value": "property_type_is_known",
    "payloads-metric-propertyvalue-type-req": "property_type_in_births",
    "payloads-propertyset-quality-value-type": "quality_is_int32",
    "payloads-propertyset-quality-value-value": "quality_is_a_code",
}

# The gateway publishes neither: that no such thing appears is checked.
NEVER_TEMPLATES = """
    topics-nbirth-templates payloads-template-definition-is-definition payloads-template-definition-members
    payloads-template-definition-nbirth payloads-template-definition-nbirth-only
    payloads-template-definition-parameters payloads-template-definition-parameters-default
    payloads-template-definition-ref payloads-template-instance-is-definition payloads-template-instance-members
    payloads-template-instance-members-birth payloads-template-instance-members-data
    payloads-template-instance-parameters payloads-template-instance-ref payloads-template-is-definition
    payloads-template-is-definition-definition payloads-template-is-definition-instance
    payloads-template-parameter-name-required payloads-template-parameter-name-type
    payloads-template-parameter-type-req payloads-template-parameter-type-value payloads-template-parameter-value
    payloads-template-parameter-value-type payloads-template-ref-definition payloads-template-ref-instance
    payloads-template-version"""
NEVER_DATASETS = """
    payloads-dataset-column-num-headers payloads-dataset-column-size payloads-dataset-parameter-type-req
    payloads-dataset-types-def payloads-dataset-types-num payloads-dataset-types-type payloads-dataset-types-value
    payloads-template-dataset-value"""
CHECKED.update({**dict.fromkeys(NEVER_TEMPLATES.split(), "no_template"),
                **dict.fromkeys(NEVER_DATASETS.split(), "no_dataset")})

NOT_THE_NODES = {
    "a host's: what it does with its own state": """
    host-topic-phid-birth-message host-topic-phid-birth-payload host-topic-phid-birth-payload-timestamp
    host-topic-phid-birth-qos host-topic-phid-birth-required host-topic-phid-birth-retain
    host-topic-phid-birth-sub-required host-topic-phid-birth-topic host-topic-phid-death-payload
    host-topic-phid-death-payload-timestamp-connect host-topic-phid-death-payload-timestamp-disconnect-clean
    host-topic-phid-death-payload-timestamp-disconnect-with-no-disconnect-packet host-topic-phid-death-qos
    host-topic-phid-death-required host-topic-phid-death-retain host-topic-phid-death-topic conformance-primary-host
    message-flow-hid-sparkplug-state-message-delivered message-flow-phid-sparkplug-clean-session-311
    message-flow-phid-sparkplug-clean-session-50 message-flow-phid-sparkplug-state-publish
    message-flow-phid-sparkplug-state-publish-payload message-flow-phid-sparkplug-state-publish-payload-timestamp
    message-flow-phid-sparkplug-subscription operational-behavior-host-application-connect-birth
    operational-behavior-host-application-connect-birth-payload
    operational-behavior-host-application-connect-birth-qos
    operational-behavior-host-application-connect-birth-retained
    operational-behavior-host-application-connect-birth-topic operational-behavior-host-application-connect-will
    operational-behavior-host-application-connect-will-payload
    operational-behavior-host-application-connect-will-qos
    operational-behavior-host-application-connect-will-retained
    operational-behavior-host-application-connect-will-topic operational-behavior-host-application-death-payload
    operational-behavior-host-application-death-qos operational-behavior-host-application-death-retained
    operational-behavior-host-application-death-topic operational-behavior-host-application-disconnect-intentional
    operational-behavior-host-application-host-id operational-behavior-host-application-multi-server-timestamp
    operational-behavior-host-application-termination
    operational-behavior-primary-application-state-with-multiple-servers-state payloads-state-birth
    payloads-state-birth-payload payloads-state-subscribe payloads-state-will-message
    payloads-state-will-message-payload payloads-state-will-message-qos payloads-state-will-message-retain""",
    "a host's: what it makes of what it receives": """
    operational-behavior-edge-node-termination-host-action-ddeath-devices-offline
    operational-behavior-edge-node-termination-host-action-ddeath-devices-tags-stale
    operational-behavior-edge-node-termination-host-action-ndeath-devices-offline
    operational-behavior-edge-node-termination-host-action-ndeath-devices-tags-stale
    operational-behavior-edge-node-termination-host-action-ndeath-node-offline
    operational-behavior-edge-node-termination-host-action-ndeath-node-tags-stale
    operational-behavior-host-reordering-param operational-behavior-host-reordering-rebirth
    operational-behavior-host-reordering-start operational-behavior-host-reordering-success""",
    "a host's: the commands that it sends": """
    topics-ncmd-mqtt topics-ncmd-payload topics-ncmd-timestamp topics-ncmd-topic topics-dcmd-mqtt
    topics-dcmd-payload topics-dcmd-timestamp topics-dcmd-topic payloads-ncmd-qos payloads-ncmd-retain
    payloads-ncmd-seq payloads-ncmd-timestamp payloads-dcmd-qos payloads-dcmd-retain payloads-dcmd-seq
    payloads-dcmd-timestamp payloads-name-cmd-requirement operational-behavior-data-commands-dcmd-metric-name
    operational-behavior-data-commands-dcmd-metric-value operational-behavior-data-commands-dcmd-verb
    operational-behavior-data-commands-ncmd-metric-name operational-behavior-data-commands-ncmd-metric-value
    operational-behavior-data-commands-ncmd-rebirth-name operational-behavior-data-commands-ncmd-rebirth-value
    operational-behavior-data-commands-ncmd-rebirth-verb operational-behavior-data-commands-ncmd-verb""",
    "a broker's": """
    conformance-mqtt-qos0 conformance-mqtt-qos1 conformance-mqtt-retained conformance-mqtt-will-messages
    conformance-mqtt-aware-basic conformance-mqtt-aware-store conformance-mqtt-aware-nbirth-mqtt-retain
    conformance-mqtt-aware-nbirth-mqtt-topic conformance-mqtt-aware-dbirth-mqtt-retain
    conformance-mqtt-aware-dbirth-mqtt-topic conformance-mqtt-aware-ndeath-timestamp""",
    "a permission: no node can break it": "topic-structure-namespace-duplicate-device-id-across-edge-node",
}
REASONS = {identifier: reason for reason, names in NOT_THE_NODES.items() for identifier in names.split()}

# What the gateway promises beyond the standard.
PROMISES = {
    "gateway-packets-whole": "packets_are_whole",
    "gateway-payload-strict": "payloads_are_strict",
    "gateway-clean-session": "session_is_clean",
    "gateway-no-retained": "nothing_is_retained",
    "gateway-no-commands": "sends_no_commands",
    "gateway-one-device": "one_device",
    "gateway-no-data-while-dead": "data_only_while_alive",
    "gateway-no-birth-while-lost": "no_birth_while_lost",
    "gateway-history-behind-births": "history_only_behind_births",
    "gateway-history-older-than-births": "history_is_older_than_births",
    "gateway-history-oldest-first": "history_is_in_order",
    "gateway-live-never-back": "live_never_goes_back",
    "gateway-data-without-datatype": "no_datatype_in_data",
    "gateway-data-alias-alone": "alias_alone_in_data",
    "gateway-data-from-births": "birth_tells_of_all NBIRTH; birth_tells_of_all DBIRTH",
    "gateway-value-fits-datatype": "value_fits_datatype",
    "gateway-nothing-missing": "nothing_is_missing",
    "gateway-fence-qos": "fences_have_qos_1",
    "gateway-fence-one-at-a-time": "one_fence_at_a_time",
    "gateway-fence-behind-data": "fence_follows_data",
    "gateway-fence-overdue": "overdue_fence_ends_connection",
    "gateway-null-when-not-good": "null_when_not_good",
    "gateway-quality-in-births": "quality_in_births",
    "gateway-quality-when-told": "quality_only_when_told",
    "gateway-json-delivery": "json_is_qos_1",
    "gateway-json-form": "json_is_whole",
    "gateway-command-answered": "commands_are_answered",
    "gateway-command-result": "results_are_words",
}
